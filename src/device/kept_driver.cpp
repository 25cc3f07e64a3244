// A driver's record over a kept device.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "device/kept_inside.h"

namespace brisolt::drivers {

namespace {

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
