// A serial device as the port engine sees it: a driver's record and the device it made. Everything below
// the rings goes through here, whichever driver stands behind it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "brisolt_host.h"
#include "platform/device_options.h"

namespace brisolt {

namespace drivers {
struct Opened;
}

/// An open device. Thin: each call checks that the driver has the function and hands over. Several
/// threads may call into one Device; open, adopt and close are the owner's alone.
class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() { close(); }

    /// Opens by the name that the port engine builds ("\\.\COM7", "COM7") or by a path. 1, or a
    /// negative host error number; the calling thread's error text then says why.
    int32_t open(std::string_view name) noexcept;
    /// Takes a handle that the caller keeps: one of ComHostOpenDevice or any tty's descriptor.
    int32_t adopt(int32_t handle) noexcept;
    void close() noexcept;
    /// Whoever opened it has set it up: from here on a purge drops what has come.
    void setUpDone() noexcept { keepsFirstBytes_ = false; }
    /// Until then nothing that it holds is discarded.
    void keepFirstBytes() noexcept { keepsFirstBytes_ = true; }
    /// Closes the device and, when it was adopted, the handle of whoever opened it.
    void closeWithHandle() noexcept;

    bool present() const noexcept { return self_ != nullptr; }
    int32_t handle() const noexcept { return handle_; }
    bool tellsStatus() const noexcept { return present() && driver_.status != nullptr; }
    /// It has no counters, so errors show in its status alone.
    bool tellsErrorsByStatus() const noexcept;
    bool adopted() const noexcept { return adopted_; }
    /// What an open has found and left alone.
    void assumeOutputs(uint32_t lines) const noexcept { outputs_.fetch_or(lines); }
    /// A wait for it is a sleep of the library's, not of a driver of the program's.
    bool sleepsItself() const noexcept { return !ofProgram_; }
    bool canWait() const noexcept { return present() && driver_.wait != nullptr; }

    bool properties(ComHostProperties& properties) const noexcept;
    bool getLineState(ComHostLineState& state) const noexcept;
    bool setLineState(const ComHostLineState& state) const noexcept;
    bool getTimeouts(ComHostTimeouts& timeouts) const noexcept;
    bool setTimeouts(const ComHostTimeouts& timeouts) const noexcept;
    bool setQueues(uint32_t inSize, uint32_t outSize) const noexcept;
    bool setEventMask(uint32_t events) const noexcept;
    bool purge(uint32_t what) const noexcept;
    bool line(uint32_t function) const noexcept;
    bool modemStatus(uint32_t& lines) const noexcept;
    /// Zeros where the driver cannot tell.
    ComHostStatus status(uint32_t wanted) const noexcept;
    int32_t read(void* buffer, int32_t count) const noexcept;
    int32_t write(const void* buffer, int32_t count, uint32_t how, int32_t& error) const noexcept;
    bool flush() const noexcept;
    /// The events that hold; `interrupted` among them: a signal handler has run on this thread.
    static constexpr uint32_t interrupted = 0x8000'0000;
    uint32_t wait(uint32_t events, int32_t wake, int32_t realMilliseconds) const noexcept;
    /// Polls readable when there are bytes to read; -1: none does.
    /// One that is waited for when it has gone: what comes back has another descriptor.
    bool mayChange() const noexcept;
    int32_t descriptor() const noexcept {
        return present() && driver_.descriptor != nullptr ? driver_.descriptor(self_) : -1;
    }
    /// COM_HOST_DEVICE_...
    int32_t state() const noexcept {
        return !present()                 ? COM_HOST_DEVICE_GONE
               : driver_.state != nullptr ? driver_.state(self_)
                                          : COM_HOST_DEVICE_THERE;
    }
    /// Bytes that have been written and not left on the line.
    int32_t unsent() const noexcept;
    /// False when the device counts nothing.
    /// What it counts: 1 all that it can tell, 0 how often it went and came back and nothing else, below 0 nothing.
    int32_t counters(ComHostCounters& counters) const noexcept;
    /// As a driver's watch. The events that will be told.
    uint32_t watch(uint32_t events, void (*changed)(void*), void* argument) const noexcept;
    /// DTR and RTS as `line` has left them, COM_HOST_MODEM_... bits.
    uint32_t outputs() const noexcept { return outputs_.load(std::memory_order_relaxed); }
    /// What its path asked for.
    const DeviceOptions& options() const noexcept { return options_; }
    /// While it is on, no write or flush waits for the line.
    void cancel(bool on) const noexcept;

private:
    void noteOutput(uint32_t function) const noexcept;
    int32_t takeOver(int32_t handle, bool isKept, const drivers::Opened& kept) noexcept;

    ComHostDriver driver_{};
    void* self_ = nullptr;
    int32_t handle_ = -1;
    DeviceOptions options_{};
    mutable std::atomic<uint32_t> outputs_{0};
    bool adopted_ = false;
    bool keepsFirstBytes_ = false; ///< a greeting that comes while the line is set up is no stale input
    bool ofProgram_ = false;
    bool borrowed_ = false; ///< the device of the handle itself, which outlives this
    int32_t shared_ = -1;   ///< the handle of ComHostOpenDevice whose device this is, else -1
};

namespace drivers {
/// ComHostRegisterDriver.
int32_t registerDriver(const char* scheme, const ComHostDriver* driver) noexcept;
int32_t openHandle(const char* path) noexcept;
int32_t closeHandle(int32_t handle) noexcept;
const ComHostDriver& nullModem() noexcept;
const ComHostDriver& loop() noexcept;
/// As their open, with the lines as the options have them before anybody sees the end.
int32_t openNullModem(const char* path, const DeviceOptions& options, void** device,
                      int32_t* handle) noexcept;
int32_t openLoop(const char* path, const DeviceOptions& options, void** device, int32_t* handle) noexcept;
/// Lines to other machines.
const ComHostDriver& tcp() noexcept;
const ComHostDriver& tls() noexcept;
const ComHostDriver& remotePort() noexcept;
const ComHostDriver& remotePortTls() noexcept;
/// Their ring indicator. False when nothing is open under the path, or it is of another scheme.
bool ringNullModem(const char* path, bool on) noexcept;
bool ringLoop(const char* path, bool on) noexcept;
} // namespace drivers

namespace deviceNames {
int32_t map(int32_t port, const char* path) noexcept;
/// The program has mapped the port.
bool isMapped(int32_t port) noexcept;
/// A mapping for the life of an open; it ends unless the program has made another meanwhile. False: too long a path.
bool mapOpened(int32_t port, const char* path);
void endOpened(int32_t port) noexcept;
/// The path behind a name: "\\.\COMn" and "COMn" resolve (mapping, /dev/comN, /dev/ttyS(N-1)); anything
/// else stands for itself. Options behind a name go behind its path.
std::string resolve(std::string_view name);
} // namespace deviceNames

} // namespace brisolt
