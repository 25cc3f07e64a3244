#include "device/kept_device.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "device/keeper.h"
#include "device/open_attempt.h"
#include "device/remembered_settings.h"
#include "platform/mutex.h"
#include "platform/serial.h"
#include "platform/signal.h"

namespace brisolt::drivers {

namespace {

void addLines(ComHostCounters& sum, const ComHostCounters& more) noexcept {
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
    std::string pathNow() const;
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
    static constexpr uint32_t firstPause = 100; ///< milliseconds
    uint32_t pause_ = firstPause;               ///< this and what follows up to the mutexes: the keeper's
    clock::Deadline nextTry_ = clock::Deadline::never();
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

// ---- holds

KeptDevice::Inside::Inside(KeptDevice& kept) noexcept : kept_(kept) {
    for (Place* place = kept.current_.load(); place != nullptr; place = kept.current_.load()) {
        uint32_t holds = place->holds.load(std::memory_order_relaxed);
        while (holds != 0 &&
               !place->holds.compare_exchange_weak(holds, holds + 1, std::memory_order_acq_rel)) {
        }
        if (holds == 0)
            continue; // on its way out
        if (kept.current_.load() == place) {
            place_ = place;
            return;
        }
        kept.leave(*place);
    }
}

void KeptDevice::leave(Place& place) noexcept {
    if (place.holds.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    place.device.driver.close(place.device.self);
    place.empty.store(true, std::memory_order_release);
    keeper::wake(); // it may wait for the place, or for the device's name to come free
}

Place* KeptDevice::freePlace() noexcept {
    for (Place& place : places_)
        if (place.empty.load(std::memory_order_acquire))
            return &place;
    return nullptr;
}

/// False: what it was set up with has changed meanwhile.
bool KeptDevice::put(Place& place, const Opened& opened, uint32_t version) noexcept {
    const MutexLock guard(mutex_);
    if (version != version_)
        return false;
    place.empty = false;
    place.device = opened;
    place.holds.store(1, std::memory_order_release);
    lost_ = false;
    current_ = &place;
    return true;
}

// ---- the life

int32_t KeptDevice::openFirst(Opened& shown) {
    if (arrived_.descriptor() < 0)
        return -EMFILE;
    if (hostDevice_) // before anything is open that a lack of memory would leave so
        identity_ = serial::identityOf(path_);
    Opened opened;
    if (const int32_t result = open_(path_, options_, opened); result < 0)
        return result;
    uint32_t version = 0;
    settingsNow(version);
    put(places_[0], opened, version);
    task_ = {.self = this, .step = step, .path = hostDevice_ ? path_.c_str() : nullptr};
    if (!keeper::add(task_)) {
        end();
        return -ENOMEM;
    }
    ComHostCounters counted{};
    counted.size = sizeof counted;
    hasCounters_ = opened.driver.counters != nullptr;
    counts_ = hasCounters_ && opened.driver.counters(opened.self, &counted) > 0;
    shown = opened;
    shown.handle = arrived_.descriptor(); // the device's own is somebody else's number while it is away
    return 1;
}

void KeptDevice::end() noexcept {
    keeper::remove(task_);
    if (attempt_ != nullptr)
        attempt_->leaveBehind();
    watch(0, nullptr, nullptr);
    if (Place* place = current_.exchange(nullptr))
        leave(*place);
}

clock::Deadline KeptDevice::moveOn() noexcept {
    if (state() == COM_HOST_DEVICE_THERE && lost_)
        takeOut();
    if (state() != COM_HOST_DEVICE_SOUGHT || seek())
        return clock::Deadline::never();
    if (soughtUntil_.passed()) {
        if (attempt_ != nullptr)
            attempt_->leaveBehind();
        attempt_.reset();
        state_ = COM_HOST_DEVICE_GONE;
        arrived_.set();
        tellChanged();
        return clock::Deadline::never();
    }
    const bool toldOf = (hostDevice_ && !busy_) || attempt_ != nullptr;
    return toldOf ? soughtUntil_ : clock::Deadline::earlier(soughtUntil_, nextTry_);
}

void KeptDevice::takeOut() noexcept {
    Place* place = current_.load();
    if (place == nullptr)
        return;
    const ComHostDriver& driver = place->device.driver;
    ComHostCounters counted{};
    counted.size = sizeof counted;
    const bool counts = driver.counters != nullptr && driver.counters(place->device.self, &counted) > 0;
    { // in one step: what it has counted is counted by it or by us, never by both
        const MutexLock guard(mutex_);
        if (counts)
            addLines(before_, counted);
        ++gone_;
        soughtUntil_ = options_.keepSeconds == DeviceOptions::forEver
                           ? clock::Deadline::never()
                           : clock::Deadline::in(static_cast<uint32_t>(options_.keepSeconds) * 1000U);
        state_ = COM_HOST_DEVICE_SOUGHT;
        current_ = nullptr;
    }
    if (driver.watch != nullptr)
        driver.watch(place->device.self, 0, nullptr, nullptr);
    if (driver.cancel != nullptr)
        driver.cancel(place->device.self, 1); // whoever waits for its line waits no more
    leave(*place);
    trySoon();
    noteBusy(false);
    tellChanged();
}

std::string KeptDevice::pathNow() const {
    if (!identity_.known())
        return path_;
    for (const serial::UsbDevice& device : serial::usbDevices())
        if (identity_.isOf(device.identity))
            return device.path;
    return {};
}

RememberedSettings KeptDevice::settingsNow(uint32_t& version) {
    const MutexLock guard(mutex_);
    version = version_;
    return remembered_;
}

bool KeptDevice::seek() noexcept try {
    Place* place = freePlace();
    if (place == nullptr || !(hostDevice_ ? seekHostDevice(*place) : seekAside(*place)))
        return false;
    arrive();
    return true;
} catch (...) {
    noteBusy(hostDevice_); // no memory now
    return false;
}

/// What is held by somebody, or may be had when the host is better off.
bool comesFree(int32_t error) noexcept {
    return error == -EBUSY || error == -EMFILE || error == -ENFILE || error == -ENOMEM;
}

void KeptDevice::trySoon() noexcept {
    pause_ = firstPause;
    nextTry_ = clock::Deadline::in(pause_);
}

void KeptDevice::tryLater() noexcept {
    constexpr uint32_t longest = 5000; // milliseconds
    pause_ = std::min(pause_ * 2, longest);
    nextTry_ = clock::Deadline::in(pause_);
}

void KeptDevice::noteBusy(bool busy) noexcept {
    if (busy && busy_)
        tryLater();
    else if (busy)
        trySoon();
    busy_ = busy;
    task_.busy = busy;
}

/// Whether the next try is not due yet. News may be that of the other's close, which is told before the device is
/// free.
bool KeptDevice::putOff() noexcept {
    if (!busy_ || nextTry_.passed())
        return false;
    const clock::Deadline planned = nextTry_;
    trySoon();
    nextTry_ = clock::Deadline::earlier(nextTry_, planned);
    return true;
}

bool KeptDevice::seekHostDevice(Place& place) {
    if (putOff())
        return false;
    const std::string path = pathNow();
    Opened opened;
    uint32_t version = 0;
    RememberedSettings settings = settingsNow(version);
    const int32_t result = path.empty() ? -ENOENT : open_(path, settings.startOf(options_), opened);
    noteBusy(comesFree(result));
    if (result < 0)
        return false;
    for (settings.setUp(opened); !put(place, opened, version); settings.setUp(opened))
        settings = settingsNow(version);
    return true;
}

/// Where no host tells, it is tried again after a while, and then after twice as long each time. An attempt may
/// take longer than anybody else's device can wait for.
bool KeptDevice::seekAside(Place& place) {
    if (attempt_ == nullptr) {
        if (nextTry_.passed())
            beginAttempt({});
        return false;
    }
    if (attempt_->state() == OpenAttempt::State::underWay)
        return false;
    const Opened opened = attempt_->take();
    attempt_.reset();
    if (opened.self != nullptr && put(place, opened, attemptVersion_))
        return true;
    if (opened.self != nullptr) {
        beginAttempt(opened);
        return false;
    }
    tryLater();
    return false;
}

void KeptDevice::beginAttempt(const Opened& opened) {
    const RememberedSettings settings = settingsNow(attemptVersion_);
    attempt_ = OpenAttempt::begin({.path = path_,
                                   .options = settings.startOf(options_),
                                   .open = open_,
                                   .settings = settings,
                                   .opened = opened},
                                  keeper::wake);
    if (attempt_ == nullptr)
        nextTry_ = clock::Deadline::in(pause_);
}

void KeptDevice::arrive() noexcept {
    {
        const MutexLock guard(mutex_);
        ++back_;
    }
    state_ = COM_HOST_DEVICE_THERE;
    if (cancelled_) // meanwhile
        cancel(true);
    arrived_.set();
    tellChanged();
}

void KeptDevice::tellChanged() noexcept {
    const MutexLock guard(watchMutex_);
    const Inside inside(*this);
    if (inside && watched_ != 0 && inside.driver().watch != nullptr)
        inside.driver().watch(inside.self(), watched_, changed_, argument_);
    if (changed_ != nullptr)
        changed_(argument_);
}

// ---- what is asked of it

void KeptDevice::noteIfGone(const Inside& inside) noexcept {
    const ComHostDriver& driver = inside.driver();
    if (driver.state == nullptr || driver.state(inside.self()) == COM_HOST_DEVICE_THERE)
        return;
    {
        const MutexLock guard(mutex_);
        if (lost_ || !inside.isCurrent())
            return;
        lost_ = true;
        arrived_.clear();
    }
    keeper::wake();
}

int32_t KeptDevice::wait(uint32_t events, int32_t wake, int32_t milliseconds) noexcept {
    {
        const Inside inside(*this);
        if (inside && !lost_) {
            const int32_t held = inside.driver().wait(inside.self(), events, wake, milliseconds);
            if (held <= 0)
                noteIfGone(inside);
            return held;
        }
    }
    if (milliseconds == 0)
        return 0;
    const int32_t until = state() == COM_HOST_DEVICE_GONE ? -1 : arrived_.descriptor();
    Watch watches[] = {{.descriptor = wake, .forRead = true}, {.descriptor = until, .forRead = true}};
    return waitAny(watches, milliseconds) < 0 ? -EINTR : 0;
}

int32_t KeptDevice::counters(ComHostCounters& counters) noexcept {
    ComHostCounters now{};
    now.size = sizeof now;
    const Inside inside(*this);
    if (inside && inside.driver().counters != nullptr)
        inside.driver().counters(inside.self(), &now);
    const MutexLock guard(mutex_);
    if (inside && !inside.isCurrent()) {
        now = {}; // it went meanwhile, and `before_` has its counts
        now.size = sizeof now;
    }
    addLines(now, before_);
    now.gone = gone_;
    now.back = back_;
    counters = now;
    return counts_ ? 1 : 0;
}

uint32_t KeptDevice::watch(uint32_t events, void (*changed)(void*), void* argument) noexcept {
    const MutexLock guard(watchMutex_);
    watched_ = events;
    changed_ = events != 0 ? changed : nullptr;
    argument_ = argument;
    constexpr uint32_t own = COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK;
    const Inside inside(*this);
    uint32_t told = events & own;
    if (inside && inside.driver().watch != nullptr)
        told |= inside.driver().watch(inside.self(), events, changed, argument);
    return told;
}

/// A setting that a device refuses has not been made; one that is made while none is there is made later.
bool KeptDevice::refuses(const Inside& inside, int32_t result) noexcept {
    if (!inside || result > 0)
        return false;
    noteIfGone(inside);
    return inside.driver().state == nullptr || inside.driver().state(inside.self()) == COM_HOST_DEVICE_THERE;
}

/// Sets something on the device that is there, and notes it for the next. `ask` and `note` do the one and the other.
template <class Ask, class Note> int32_t KeptDevice::set(Ask ask, Note note) noexcept {
    for (;;) {
        const Inside inside(*this);
        const int32_t result = inside ? ask(inside.driver(), inside.self()) : 1;
        if (refuses(inside, result))
            return result;
        const MutexLock guard(mutex_);
        if (current_.load() != nullptr && !(inside && inside.isCurrent()))
            continue; // another has come in between
        note(remembered_);
        ++version_;
        return 1;
    }
}

int32_t KeptDevice::setLineState(const ComHostLineState& state) noexcept {
    return set(
        [&state](const ComHostDriver& driver, void* self) {
            return driver.setLineState != nullptr ? driver.setLineState(self, &state) : 1;
        },
        [&state](RememberedSettings& all) {
            all.line = state;
            all.lineSet = true;
        });
}

int32_t KeptDevice::getLineState(ComHostLineState& state) noexcept {
    const Inside inside(*this);
    if (inside && inside.driver().getLineState != nullptr &&
        inside.driver().getLineState(inside.self(), &state) > 0)
        return 1;
    const MutexLock guard(mutex_);
    state = remembered_.line;
    return remembered_.lineSet ? 1 : -ENODEV;
}

int32_t KeptDevice::setTimeouts(const ComHostTimeouts& timeouts) noexcept {
    return set(
        [&timeouts](const ComHostDriver& driver, void* self) {
            return driver.setTimeouts != nullptr ? driver.setTimeouts(self, &timeouts) : 1;
        },
        [&timeouts](RememberedSettings& all) {
            all.timeouts = timeouts;
            all.timeoutsSet = true;
        });
}

int32_t KeptDevice::getTimeouts(ComHostTimeouts& timeouts) noexcept {
    const MutexLock guard(mutex_);
    timeouts = remembered_.timeouts;
    return remembered_.timeoutsSet ? 1 : -ENODEV;
}

int32_t KeptDevice::setQueues(uint32_t inSize, uint32_t outSize) noexcept {
    return set(
        [=](const ComHostDriver& driver, void* self) {
            return driver.setQueues != nullptr ? driver.setQueues(self, inSize, outSize) : 1;
        },
        [=](RememberedSettings& all) {
            all.inQueue = inSize;
            all.outQueue = outSize;
            all.queuesSet = true;
        });
}

int32_t KeptDevice::line(uint32_t function) noexcept {
    return set([function](const ComHostDriver& driver, void* self) { return driver.line(self, function); },
               [function](RememberedSettings& all) {
                   switch (function) {
                   case COM_HOST_LINE_SET_DTR: all.dtr = true; break;
                   case COM_HOST_LINE_CLEAR_DTR: all.dtr = false; break;
                   case COM_HOST_LINE_SET_RTS: all.rts = true; break;
                   case COM_HOST_LINE_CLEAR_RTS: all.rts = false; break;
                   default: break;
                   }
               });
}

void KeptDevice::cancel(bool on) noexcept {
    cancelled_ = on;
    const Inside inside(*this);
    if (inside && inside.driver().cancel != nullptr)
        inside.driver().cancel(inside.self(), on ? 1 : 0);
}

// ---- the driver's record

KeptDevice& of(void* device) noexcept {
    return *static_cast<KeptDevice*>(device);
}

/// Hands a call over to the device that is there.
template <auto Function, class... Arguments> int32_t handOver(void* device, Arguments... arguments) noexcept {
    const KeptDevice::Inside inside(of(device));
    return inside ? (inside.driver().*Function)(inside.self(), arguments...) : -ENODEV;
}

void closeKept(void* device) noexcept {
    const std::unique_ptr<KeptDevice> kept(&of(device));
    kept->end();
}

int32_t readKept(void* device, void* buffer, int32_t count) noexcept {
    KeptDevice& kept = of(device);
    const KeptDevice::Inside inside(kept);
    const int32_t got = inside ? inside.driver().read(inside.self(), buffer, count) : 0;
    if (inside && got <= 0)
        kept.noteIfGone(inside);
    return got;
}

int32_t writeKept(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept {
    KeptDevice& kept = of(device);
    *error = 0;
    const KeptDevice::Inside inside(kept);
    if (!inside) { // there is no room until it is back
        *error = kept.state() == COM_HOST_DEVICE_GONE ? ENODEV : how == COM_HOST_WRITE_NOW ? 0 : ETIMEDOUT;
        return 0;
    }
    const int32_t taken = inside.driver().write(inside.self(), buffer, count, how, error);
    if (taken < count) {
        kept.noteIfGone(inside);
        if (how == COM_HOST_WRITE_NOW && kept.lost())
            *error = 0;
    }
    return taken;
}

int32_t statusKept(void* device, uint32_t wanted, ComHostStatus* status) noexcept {
    return handOver<&ComHostDriver::status>(device, wanted, status);
}

int32_t unsentKept(void* device) noexcept {
    return std::max(handOver<&ComHostDriver::unsent>(device), 0);
}

/// What the device below cannot do the kept one cannot do either.
ComHostDriver recordFor(const ComHostDriver& inner) noexcept {
    ComHostDriver record{};
    record.size = sizeof record;
    record.close = closeKept;
    record.read = readKept;
    record.write = writeKept;
    record.setLineState = [](void* d, const ComHostLineState* s) { return of(d).setLineState(*s); };
    record.getLineState = [](void* d, ComHostLineState* s) { return of(d).getLineState(*s); };
    record.setTimeouts = [](void* d, const ComHostTimeouts* t) { return of(d).setTimeouts(*t); };
    record.getTimeouts = [](void* d, ComHostTimeouts* t) { return of(d).getTimeouts(*t); };
    record.setQueues = [](void* d, uint32_t in, uint32_t out) { return of(d).setQueues(in, out); };
    record.cancel = [](void* d, int32_t on) { of(d).cancel(on != 0); };
    record.counters = [](void* d, ComHostCounters* c) { return of(d).counters(*c); };
    record.watch = [](void* d, uint32_t e, void (*f)(void*), void* a) { return of(d).watch(e, f, a); };
    record.state = [](void* d) { return of(d).state(); };
    if (inner.wait != nullptr)
        record.wait = [](void* d, uint32_t e, int32_t w, int32_t m) { return of(d).wait(e, w, m); };
    if (inner.line != nullptr)
        record.line = [](void* d, uint32_t function) { return of(d).line(function); };
    if (inner.status != nullptr)
        record.status = statusKept;
    if (inner.unsent != nullptr)
        record.unsent = unsentKept;
    record.properties =
        inner.properties != nullptr ? handOver<&ComHostDriver::properties, ComHostProperties*> : nullptr;
    record.setEventMask =
        inner.setEventMask != nullptr ? handOver<&ComHostDriver::setEventMask, uint32_t> : nullptr;
    record.purge = inner.purge != nullptr ? handOver<&ComHostDriver::purge, uint32_t> : nullptr;
    record.modemStatus =
        inner.modemStatus != nullptr ? handOver<&ComHostDriver::modemStatus, uint32_t*> : nullptr;
    record.flush = inner.flush != nullptr ? handOver<&ComHostDriver::flush> : nullptr;
    record.descriptor = inner.descriptor != nullptr ? handOver<&ComHostDriver::descriptor> : nullptr;
    return record;
}

} // namespace

int32_t openKept(const std::string& path, const DeviceOptions& options, bool hostDevice, OpenInner open,
                 Opened& opened) {
    auto kept = std::make_unique<KeptDevice>(path, options, hostDevice, open);
    Opened first;
    if (const int32_t result = kept->openFirst(first); result < 0)
        return result;
    opened.driver = recordFor(first.driver);
    opened.handle = first.handle;
    opened.self = kept.release();
    return 1;
}

bool isKept(const ComHostDriver& driver) noexcept {
    return driver.close == closeKept;
}

bool hasCounters(const ComHostDriver& driver, void* self) noexcept {
    return isKept(driver) ? of(self).hasCounters() : driver.counters != nullptr;
}

} // namespace brisolt::drivers
