// The inside of a kept device: the two places that its device comes and goes in, and what it remembers.
// kept_device.h draws its life, which kept_device.cpp is; kept_requests.cpp is what is asked of it meanwhile, and
// kept_driver.cpp makes a driver's record of that.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "device/keeper.h"
#include "device/kept_device.h"
#include "device/open_attempt.h"
#include "device/remembered_settings.h"
#include "platform/mutex.h"
#include "platform/serial.h"
#include "platform/signal.h"

namespace brisolt::drivers {

/// The lines and errors that a device has counted.
inline void addLines(ComHostCounters& sum, const ComHostCounters& more) noexcept {
    using Counter = uint32_t ComHostCounters::*;
    constexpr Counter lines[] = {
        &ComHostCounters::cts,    &ComHostCounters::dsr,     &ComHostCounters::carrier,
        &ComHostCounters::ring,   &ComHostCounters::breaks,  &ComHostCounters::framing,
        &ComHostCounters::parity, &ComHostCounters::overrun, &ComHostCounters::overflow};
    for (Counter line : lines)
        sum.*line += more.*line;
}
/// One of the two places below a kept device.
struct Place {
    std::atomic<uint32_t> holds{0}; ///< 0: nobody may come in any more
    std::atomic<bool> empty{true};
    Opened device;
};

class KeptDevice {
public:
    KeptDevice(std::string path, const DeviceOptions& options, bool hostDevice, OpenInner open) noexcept
        : path_(std::move(path)), options_(options), hostDevice_(hostDevice), open_(open) {}

    int32_t openFirst(Opened& shown);
    int32_t refuse(int32_t error) const noexcept;
    void end() noexcept;

    /// A hold on the device that is there; empty while it is away.
    class Inside {
    public:
        explicit Inside(KeptDevice& kept) noexcept;
        ~Inside() {
            if (place_ != nullptr)
                kept_.leave(*place_);
        }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;
        explicit operator bool() const noexcept { return place_ != nullptr; }
        bool isCurrent() const noexcept { return kept_.current_ == place_; }
        const ComHostDriver& driver() const noexcept { return place_->device.driver; }
        void* self() const noexcept { return place_->device.self; }
        bool isGone() const noexcept {
            return driver().state != nullptr && driver().state(self()) != COM_HOST_DEVICE_THERE;
        }

    private:
        KeptDevice& kept_;
        Place* place_ = nullptr;
    };

    bool lost() const noexcept { return lost_.load(std::memory_order_acquire); }
    int32_t state() const noexcept { return state_.load(std::memory_order_acquire); }
    int32_t wait(uint32_t events, int32_t wake, int32_t milliseconds) noexcept;
    /// Tells the keeper when the device that somebody is in has gone.
    void noteIfGone(const Inside& inside) noexcept;
    /// 1; 0 where the device itself counts nothing: only its absences are told.
    int32_t counters(ComHostCounters& counters) noexcept;
    bool hasCounters() const noexcept { return hasCounters_; }
    uint32_t watch(uint32_t events, void (*changed)(void*), void* argument) noexcept;
    int32_t setLineState(const ComHostLineState& state) noexcept;
    int32_t getLineState(ComHostLineState& state) noexcept;
    int32_t setTimeouts(const ComHostTimeouts& timeouts) noexcept;
    int32_t getTimeouts(ComHostTimeouts& timeouts) noexcept;
    int32_t setQueues(uint32_t inSize, uint32_t outSize) noexcept;
    int32_t line(uint32_t function) noexcept;
    void cancel(bool on) noexcept;

private:
    bool refuses(const Inside& inside, int32_t result) noexcept;
    template <class Ask, class Note> int32_t set(Ask ask, Note note) noexcept;
    static clock::Deadline step(void* self) noexcept { return static_cast<KeptDevice*>(self)->moveOn(); }
    clock::Deadline moveOn() noexcept;
    Place* freePlace() noexcept;
    bool put(Place& place, const Opened& opened, uint32_t version) noexcept;
    void leave(Place& place) noexcept;
    void takeOut() noexcept;
    bool seek() noexcept;
    bool seekHostDevice(Place& place);
    bool seekAside(Place& place);
    bool putOff() noexcept;
    void noteBusy(bool busy) noexcept;
    void trySoon() noexcept;
    void tryLater() noexcept;
    void beginAttempt(const Opened& opened);
    void arrive() noexcept;
    std::optional<std::string> pathNow() const; ///< none: the host fails to tell
    RememberedSettings settingsNow(uint32_t& version);
    void tellChanged() noexcept;

    const std::string path_;
    const DeviceOptions options_;
    const bool hostDevice_;
    bool hasCounters_ = false, counts_ = false; ///< the first device, as the others are taken to be
    const OpenInner open_;
    serial::Identity identity_;

    Place places_[2];
    std::atomic<Place*> current_{nullptr};
    std::atomic<int32_t> state_{COM_HOST_DEVICE_THERE};
    std::atomic<bool> lost_{false};
    std::atomic<bool> cancelled_{false};
    Signal arrived_; ///< while the device is away: set when that is over, one way or the other
    keeper::Task task_;
    static constexpr uint32_t firstPause = 100, longestPause = 5000; ///< milliseconds
    uint32_t pause_ = firstPause; ///< this and what follows up to the mutexes: the keeper's
    clock::Deadline nextTry_ = clock::Deadline::never();
    clock::Deadline lasts_ = clock::Deadline::never(); ///< a device that is there until then has really come
    clock::Deadline soughtUntil_ = clock::Deadline::never();
    bool busy_ = false;                    ///< it is back, but not to be had at the moment
    std::shared_ptr<OpenAttempt> attempt_; ///< for what the host does not tell of
    uint32_t attemptVersion_ = 0;

    Mutex mutex_;
    RememberedSettings remembered_ GUARDED_BY(mutex_);
    uint32_t version_ GUARDED_BY(mutex_) = 0;     ///< of what is remembered
    ComHostCounters before_ GUARDED_BY(mutex_){}; ///< of the devices that have been here
    uint32_t gone_ GUARDED_BY(mutex_) = 0;
    uint32_t back_ GUARDED_BY(mutex_) = 0;

    Mutex watchMutex_; ///< held while it is called
    uint32_t watched_ GUARDED_BY(watchMutex_) = 0;
    void (*changed_)(void*) GUARDED_BY(watchMutex_) = nullptr;
    void* argument_ GUARDED_BY(watchMutex_) = nullptr;
};

} // namespace brisolt::drivers
