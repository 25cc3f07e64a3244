#include "device/device.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "device/driver_registry.h"
#include "device/kept_device.h"
#include "platform/error_text.h"
#include "platform/serial.h"

namespace brisolt {
namespace {

/// Hands a call over when the device is there and its driver has the function.
template <typename Function, typename... Arguments>
bool handOver(void* self, Function function, Arguments... arguments) noexcept {
    return self != nullptr && function != nullptr && function(self, arguments...) > 0;
}

/// The same for a setting: a driver without the function has nothing to set, which refuses nothing.
template <typename Function, typename... Arguments>
bool handOverSetting(void* self, Function function, Arguments... arguments) noexcept {
    return self != nullptr && (function == nullptr || function(self, arguments...) > 0);
}

template <typename Record> Record emptyRecord() noexcept {
    Record record{};
    record.size = sizeof record;
    return record;
}

} // namespace

int32_t Device::open(std::string_view name) noexcept try {
    close();
    drivers::Opened opened;
    const int32_t result = drivers::openPath(deviceNames::resolve(name), options_, opened);
    if (result < 0)
        return result;
    driver_ = opened.driver;
    self_ = opened.self;
    handle_ = opened.handle;
    keepsFirstBytes_ = opened.startsEmpty;
    ofProgram_ = opened.ofProgram;
    return 1;
} catch (const std::bad_alloc&) {
    setErrorTextFrom({"cannot open ", name, ": ", std::strerror(ENOMEM)});
    return -ENOMEM;
}

bool Device::tellsErrorsByStatus() const noexcept {
    return tellsStatus() && !drivers::hasCounters(driver_, self_);
}

bool Device::mayChange() const noexcept {
    return present() && drivers::isKept(driver_);
}

int32_t Device::adopt(int32_t handle) noexcept {
    close();
    drivers::Opened kept;
    const drivers::Kept found = drivers::takeHandle(handle, kept);
    if (found == drivers::Kept::closed || handle < 0) {
        setErrorTextFrom({"cannot take over handle ", std::to_string(handle), ": it is not open"});
        return -EBADF;
    }
    if (found == drivers::Kept::busy) {
        setErrorTextFrom({"cannot take over handle ", std::to_string(handle), ": another port uses it"});
        return -EBUSY;
    }
    shared_ = found == drivers::Kept::taken ? handle : -1;
    options_ = {};
    if (const int32_t result = takeOver(handle, found == drivers::Kept::taken, kept); result < 0) {
        close();
        return result;
    }
    handle_ = handle;
    adopted_ = true;
    cancel(false); // a port that had it before may have cancelled its waits for good
    return 1;
}

// A tty is adopted on a descriptor of its own even when its handle is ours, so that a cancel or a close of
// the port cannot reach the next one that adopts the same handle; unless its path asked for what only that device
// does. A handle that is no tty's may be one of a registered driver.
int32_t Device::takeOver(int32_t handle, bool isKept, const drivers::Opened& kept) noexcept {
    borrowed_ = isKept && (kept.driver.open != serial::ttyDriver().open || kept.hasOptions);
    if (borrowed_) {
        driver_ = kept.driver;
        self_ = kept.self;
        options_ = kept.options;
        ofProgram_ = kept.ofProgram;
        return 1;
    }
    driver_ = serial::ttyDriver();
    ofProgram_ = false;
    void* self = nullptr;
    int32_t result = driver_.adopt(driver_.context, handle, &self);
    if (result == -ENOTTY && drivers::adoptForeign(handle, driver_, self)) {
        ofProgram_ = true;
        result = 1;
    }
    self_ = result > 0 ? self : nullptr;
    return result;
}

// Told before our own use of it ends: afterwards the handle's number may be somebody else's.
void Device::closeWithHandle() noexcept {
    if (shared_ >= 0)
        drivers::closeHandle(shared_);
    else if (adopted_ && driver_.open == serial::ttyDriver().open)
        serial::closeAdoptedDescriptor(self_, handle_);
    close();
}

void Device::close() noexcept {
    if (self_ != nullptr && !borrowed_)
        driver_.close(self_);
    self_ = nullptr;
    driver_ = {};
    handle_ = -1;
    adopted_ = false;
    borrowed_ = false;
    options_ = {};
    outputs_ = 0;
    if (shared_ >= 0)
        drivers::releaseHandle(shared_);
    shared_ = -1;
}

bool Device::properties(ComHostProperties& properties) const noexcept {
    properties = emptyRecord<ComHostProperties>();
    return handOver(self_, driver_.properties, &properties);
}

bool Device::getLineState(ComHostLineState& state) const noexcept {
    ComHostLineState answer = emptyRecord<ComHostLineState>();
    if (!handOver(self_, driver_.getLineState, &answer))
        return false;
    state = answer;
    return true;
}

bool Device::setLineState(const ComHostLineState& state) const noexcept {
    ComHostLineState wanted = state;
    wanted.size = sizeof wanted;
    return handOverSetting(self_, driver_.setLineState, &wanted);
}

bool Device::getTimeouts(ComHostTimeouts& timeouts) const noexcept {
    ComHostTimeouts answer = emptyRecord<ComHostTimeouts>();
    if (!handOver(self_, driver_.getTimeouts, &answer))
        return false;
    timeouts = answer;
    return true;
}

bool Device::setTimeouts(const ComHostTimeouts& timeouts) const noexcept {
    ComHostTimeouts wanted = timeouts;
    wanted.size = sizeof wanted;
    return handOverSetting(self_, driver_.setTimeouts, &wanted);
}

bool Device::setQueues(uint32_t inSize, uint32_t outSize) const noexcept {
    return handOverSetting(self_, driver_.setQueues, inSize, outSize);
}

bool Device::setEventMask(uint32_t events) const noexcept {
    return handOverSetting(self_, driver_.setEventMask, events);
}

bool Device::purge(uint32_t what) const noexcept {
    return keepsFirstBytes_ || handOver(self_, driver_.purge, what);
}

bool Device::line(uint32_t function) const noexcept {
    const bool done = handOver(self_, driver_.line, function);
    if (done)
        noteOutput(function);
    return done;
}

void Device::noteOutput(uint32_t function) const noexcept {
    switch (function) {
    case COM_HOST_LINE_SET_DTR: outputs_.fetch_or(COM_HOST_MODEM_DTR); break;
    case COM_HOST_LINE_SET_RTS: outputs_.fetch_or(COM_HOST_MODEM_RTS); break;
    case COM_HOST_LINE_CLEAR_DTR: outputs_.fetch_and(~uint32_t{COM_HOST_MODEM_DTR}); break;
    case COM_HOST_LINE_CLEAR_RTS: outputs_.fetch_and(~uint32_t{COM_HOST_MODEM_RTS}); break;
    default: break;
    }
}

bool Device::modemStatus(uint32_t& lines) const noexcept {
    lines = 0;
    return handOver(self_, driver_.modemStatus, &lines);
}

ComHostStatus Device::status(uint32_t wanted) const noexcept {
    ComHostStatus answer = emptyRecord<ComHostStatus>();
    if (self_ != nullptr && driver_.status != nullptr)
        driver_.status(self_, wanted, &answer);
    return answer;
}

int32_t Device::read(void* buffer, int32_t count) const noexcept {
    if (self_ == nullptr)
        return -EBADF;
    if (buffer == nullptr || count <= 0)
        return 0;
    return std::min(driver_.read(self_, buffer, count), count);
}

int32_t Device::write(const void* buffer, int32_t count, uint32_t how, int32_t& error) const noexcept {
    error = 0;
    if (self_ == nullptr) {
        error = EBADF;
        return 0;
    }
    if (buffer == nullptr || count <= 0)
        return 0;
    const int32_t written = driver_.write(self_, buffer, count, how, &error);
    error = std::abs(error); // drivers tell it with and without the sign of a result
    return std::clamp(written, 0, count);
}

bool Device::flush() const noexcept {
    return handOver(self_, driver_.flush);
}

uint32_t Device::wait(uint32_t events, int32_t wake, int32_t realMilliseconds) const noexcept {
    if (!canWait())
        return 0;
    const int32_t holding = driver_.wait(self_, events, wake, realMilliseconds);
    if (holding == -EINTR)
        return interrupted;
    return holding > 0 ? static_cast<uint32_t>(holding) & events : 0;
}

int32_t Device::unsent() const noexcept {
    if (present() && driver_.unsent != nullptr)
        return std::max(driver_.unsent(self_), 0);
    return static_cast<int32_t>(status(COM_HOST_WANT_OUT).outQueue);
}

int32_t Device::counters(ComHostCounters& counters) const noexcept {
    counters = emptyRecord<ComHostCounters>();
    return present() && driver_.counters != nullptr ? driver_.counters(self_, &counters) : -1;
}

uint32_t Device::watch(uint32_t events, void (*changed)(void*), void* argument) const noexcept {
    return present() && driver_.watch != nullptr ? driver_.watch(self_, events, changed, argument) : 0;
}

void Device::cancel(bool on) const noexcept {
    if (self_ != nullptr && driver_.cancel != nullptr)
        driver_.cancel(self_, on ? 1 : 0);
}

} // namespace brisolt
