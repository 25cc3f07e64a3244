#include "device/kept_device.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "device/kept_inside.h"
#include "platform/error_text.h"

namespace brisolt::drivers {

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

int32_t KeptDevice::refuse(int32_t error) const noexcept {
    setErrorTextFrom({"cannot keep ", path_, ": ", std::strerror(error)});
    return -error;
}

int32_t KeptDevice::openFirst(Opened& shown) {
    if (arrived_.descriptor() < 0)
        return refuse(EMFILE);
    // Before anything is open that a lack of memory would leave so. Taken for a device on no USB, it would not be
    // found again under another name.
    if (const int32_t error = hostDevice_ ? serial::identityOf(path_, identity_) : 0; error != 0)
        return refuse(error);
    Opened opened;
    if (const int32_t result = open_(path_, options_, opened); result < 0)
        return result;
    uint32_t version = 0;
    settingsNow(version);
    put(places_[0], opened, version);
    lasts_ = clock::Deadline::in(longestPause);
    task_ = {.self = this, .step = step, .path = hostDevice_ ? path_.c_str() : nullptr};
    if (!keeper::add(task_)) {
        end();
        return refuse(ENOMEM);
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
    if (lasts_.passed())
        trySoon();
    else // a far end that accepts and drops at once is no better than one that refuses
        tryLater();
    noteBusy(false);
    tellChanged();
}

/// Twins have been made with one serial number: of those the one on the old socket.
std::optional<std::string> KeptDevice::pathNow() const {
    if (!identity_.known())
        return path_;
    const std::optional<std::vector<serial::UsbDevice>> devices = serial::usbDevices();
    if (!devices)
        return std::nullopt;
    std::string path;
    for (const serial::UsbDevice& device : *devices) {
        if (!identity_.isOf(device.identity))
            continue;
        if (device.identity.location == identity_.location)
            return device.path;
        if (path.empty())
            path = device.path;
    }
    return path;
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
static bool comesFree(int32_t error) noexcept {
    return error == -EBUSY || error == -EMFILE || error == -ENFILE || error == -ENOMEM;
}

void KeptDevice::trySoon() noexcept {
    pause_ = firstPause;
    nextTry_ = clock::Deadline::in(pause_);
}

void KeptDevice::tryLater() noexcept {
    pause_ = std::min(pause_ * 2, longestPause);
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
    const std::optional<std::string> path = pathNow();
    if (!path) { // the host may be better off soon
        noteBusy(true);
        return false;
    }
    Opened opened;
    uint32_t version = 0;
    RememberedSettings settings = settingsNow(version);
    const int32_t result = path->empty() ? -ENOENT : open_(*path, settings.startOf(options_), opened);
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
    lasts_ = clock::Deadline::in(longestPause);
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

} // namespace brisolt::drivers
