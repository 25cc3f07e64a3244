// Which part of the library a message of the service is for.
#include <algorithm>

#include "telephony/call_messages.h"
#include "telephony/line_messages.h"
#include "telephony/service_records.h"
#include "telephony/telephony_device.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

namespace {

void lineClosed(const Report&) {
    log("DoLineClose event");
}

void reply(const Report& report) {
    auto devices = knownDevices();
    bool known = std::ranges::any_of(devices, [&](const TelephonyDevice& device) {
        return device.callHandle == report.handle && report.handle != 0;
    });
    if (!known)
        log("DoLineReply: Unknown device ID '0x%lx'.", static_cast<unsigned long>(report.handle));
}

void nothing(const Report&) {}

struct Dispatch {
    uint32_t message;
    void (*handle)(const Report&);
};
constexpr Dispatch dispatches[] = {
    {service::message::callState, handleCallState},
    {service::message::lineClosed, lineClosed},
    {service::message::lineDeviceState, handleDeviceState},
    {service::message::reply, reply},
    {service::message::lineCreated, nothing},
};

void dispatch(const Report& report) {
    const auto* found = std::ranges::find(dispatches, report.message, &Dispatch::message);
    if (found != std::end(dispatches))
        found->handle(report);
    else
        log("lineCallbackFunc message ignored");
}

} // namespace

extern "C" void lineCallbackFunc(uint32_t device, uint32_t message, uintptr_t, uintptr_t p1, uintptr_t p2,
                                 uintptr_t p3) {
    try {
        dispatch({device, message, static_cast<uint32_t>(p1), static_cast<uint32_t>(p2),
                  static_cast<uint32_t>(p3)});
    } catch (...) {
        log("Out of Memory error, canceling action"); // the only thing that is ever thrown
    }
}

} // namespace brisolt::telephony
