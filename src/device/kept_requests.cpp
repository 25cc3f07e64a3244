// What is asked of a kept device: by the device that is there, or from what it remembers.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "device/kept_inside.h"

namespace brisolt::drivers {

void KeptDevice::noteIfGone(const Inside& inside) noexcept {
    if (!inside.isGone())
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
            // What a device that has gone left behind is read first. When that is all there is nothing to wait for, and
            // whoever read the last of it was not told.
            const int32_t longest = inside.isGone() ? 0 : milliseconds;
            const int32_t held = inside.driver().wait(inside.self(), events, wake, longest);
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
    return !inside.isGone();
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

} // namespace brisolt::drivers
