// A serial device that does what a test tells it: a driver registered under a scheme of its own, whose
// functions refuse, take their time or do less than they were asked for, and which keeps a list of its calls.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "brisolt_host.h"
#include "platform/signal.h"

namespace brisolt::test {

class ScriptedDriver {
public:
    enum class Call {
        open,
        close,
        properties,
        getLineState,
        setLineState,
        getTimeouts,
        setTimeouts,
        setQueues,
        setEventMask,
        purge,
        line,
        modemStatus,
        status,
        read,
        write,
        flush,
        wait,
        cancel,
        count
    };
    enum class Waits { yes, no };  ///< whether the driver has the function `wait`
    enum class Counts { yes, no }; ///< whether it has `counters`; it tells of none
    static constexpr int32_t always = std::numeric_limits<int32_t>::max();
    static constexpr int64_t unlimited = std::numeric_limits<int64_t>::max();

    explicit ScriptedDriver(const std::string& scheme = "scripted", Waits waits = Waits::yes,
                            Counts counts = Counts::no);
    /// Waits for the last device to end: a thread of the library may be on its way out of it.
    ~ScriptedDriver();
    ScriptedDriver(const ScriptedDriver&) = delete;
    ScriptedDriver& operator=(const ScriptedDriver&) = delete;

    std::string path() const { return scheme_ + ":line"; }

    // ---- the script
    /// After `after` more calls that work, the next `times` calls fail.
    void refuse(Call call, int32_t times = always, int32_t after = 0) {
        store(refusals_[static_cast<std::size_t>(call)], {after, times});
    }
    /// Every call takes that long before it does anything.
    void delay(Call call, std::chrono::milliseconds time) {
        store(delays_[static_cast<std::size_t>(call)], time);
    }
    void readAtMost(int32_t bytes) { store(readLimit_, bytes); } ///< per call
    void takeAtMost(int32_t bytes) { store(takeLimit_, bytes); } ///< per call of write
    /// From now on the line takes that many bytes in all; grant() adds to them.
    void limitRoom(int64_t bytes) { store(room_, bytes); }
    void grant(int64_t bytes) { store(room_, load(room_) + bytes); }
    void setOutQueue(uint32_t bytes) { store(outQueue_, bytes); } ///< what a status read tells
    void setModemLines(uint32_t lines) { store(modemLines_, lines); }
    void setCtsChanges(uint32_t changes) { store(ctsChanges_, changes); } ///< what it counts
    void setCapabilities(uint32_t bits) { store(properties_.provCapabilities, bits); }
    void setLineState(const ComHostLineState& state) { store(state_, state); }
    void setHandle(int32_t handle) { store(handle_, handle); } ///< what the next open hands out
    void ignoreCancel() { store(ignoresCancel_, true); }
    /// A complete write that finds no room waits for it; without this it takes what fits and returns.
    void holdCompleteWrites() { store(holds_, true); }
    void feed(std::string_view bytes); ///< they arrive at the device
    void go() { store(gone_, true); }  ///< what was fed can still be read

    // ---- what happened
    /// The calls that set something up, a line each with their arguments: all but status, read, write and
    /// wait.
    std::string settings() const { return load(settings_); }
    int64_t count(Call call) const { return load(counts_[static_cast<std::size_t>(call)]); }
    int64_t total() const; ///< calls of every kind
    void forgetCalls();
    std::string written() const { return load(written_); }
    std::vector<int32_t> writeSizes() const { return load(writeSizes_); } ///< as they were asked for
    std::size_t unread() const { return load(input_).size(); }            ///< fed bytes that nobody has read
    int32_t devices() const { return load(devices_); }                    ///< open now
    bool inWrite() const { return load(writers_) > 0; } ///< a call of write has not returned
    ComHostLineState lineState() const { return load(state_); }

private:
    struct Refusal {
        int32_t after = 0;
        int32_t times = 0;
    };
    static constexpr std::size_t callCount = static_cast<std::size_t>(Call::count);

    template <class Value> Value load(const Value& field) const {
        const std::scoped_lock guard(lock_);
        return field;
    }
    template <class Value> void store(Value& field, const std::type_identity_t<Value>& value) {
        const std::scoped_lock guard(lock_);
        field = value;
        showEvents();
    }
    static ScriptedDriver& of(void* device) { return *static_cast<ScriptedDriver*>(device); }
    static ComHostDriver record(ScriptedDriver& driver, Waits waits, Counts counts);
    /// Counts a call, and lists it when it has a text. False when it is to fail.
    bool enter(Call call, const std::string& text = {});
    int32_t setting(Call call, const std::string& text);
    int32_t open(void** device, int32_t* handle);
    int32_t read(void* buffer, int32_t count);
    int32_t write(const void* buffer, int32_t count, uint32_t how, int32_t* error);
    int32_t wait(uint32_t events, int32_t wake, int32_t milliseconds);
    uint32_t holding() const;
    void showEvents(); ///< lets the waits see what has changed

    const std::string scheme_;
    mutable std::mutex lock_;
    std::condition_variable changed_;
    bool gone_ = false;
    Signal readable_;
    Signal writable_;
    std::array<Refusal, callCount> refusals_{};
    std::array<std::chrono::milliseconds, callCount> delays_{};
    std::array<int64_t, callCount> counts_{};
    std::string settings_;
    std::deque<char> input_;
    std::string written_;
    std::vector<int32_t> writeSizes_;
    ComHostLineState state_{};
    ComHostTimeouts timeouts_{};
    ComHostProperties properties_{};
    uint32_t outQueue_ = 0;
    uint32_t modemLines_ = 0;
    uint32_t ctsChanges_ = 0;
    int32_t readLimit_ = always;
    int32_t takeLimit_ = always;
    int64_t room_ = unlimited;
    int32_t handle_;
    int32_t devices_ = 0;
    int32_t writers_ = 0;
    bool cancelled_ = false;
    bool ignoresCancel_ = false;
    bool holds_ = false;
};

} // namespace brisolt::test
