#include "telephony/line_messages.h"

#include <algorithm>

#include "telephony/call_device.h"
#include "telephony/handling.h"
#include "telephony/line_requests.h"

namespace brisolt::telephony {

namespace {

namespace deviceState = service::deviceState;

void ring(TelephonyDevice& device, const Report& report) {
    uint32_t rings = report.p3;
    int32_t index = indexOf(device);
    Use use(device);
    claimOffer(device);
    use.change([&] {
        if (uint32_t offered = device.offeredCall.exchange(0); offered != 0)
            device.callHandle = offered;
    });
    log("Line Ringing. Line:%x Call:%x deviceID:%d", device.lineHandle.load(), device.callHandle.load(),
        index);
    use.change([&] {
        if (device.autoAnswerState < autoAnswer::settled)
            device.autoAnswerState = autoAnswer::ringing;
    });
    if (device.autoAnswerArmed != 1)
        return;
    log("In AA state: Rings: %d Desired: %d", static_cast<int32_t>(rings),
        static_cast<int32_t>(device.ringsDesired.load()));
    if (device.ringsDesired > rings)
        return;
    log("Calling to Answer Call - device:%d hCall:%x", index, device.offeredCall.load());
    uint32_t call = device.callHandle;
    Answer answer = callService([=] { return service::lineAnswer(call, nullptr, 0U); });
    use.change([&] {
        if (device.autoAnswerState !=
            autoAnswer::connected) // the service may have said so within the request
            device.autoAnswerState = autoAnswer::answering;
    });
    if (answer.result > 0) // accepted; this service answers a call in no other way
        use.change([&] { device.offeredCall = 0; });
    else
        log("Error answering call - Return:%x Call:%x Device:%d", static_cast<uint32_t>(answer.result), call,
            index);
}

/// The service starts anew in part: detail 1 names the message that it would have sent.
void reinitialise(TelephonyDevice&, const Report& report) {
    switch (report.p2) {
    case 0: break;
    case service::message::lineDeviceState:
        log("Soft REINIT: LINE_LINEDEVSTATE.");
        handleDeviceState({report.handle, report.message, report.p3, 0, 0});
        break;
    case service::message::lineCreated: log("Soft REINIT: LINE_CREATE."); break;
    default: log("Ignoring soft REINIT"); break;
    }
}

struct StateAction {
    uint32_t state;
    const char* text; ///< null: nothing, or the action tells
    void (*act)(TelephonyDevice&, const Report&);
};
// The notices end their lines in the log themselves: people read them by their own.
constexpr StateAction stateActions[] = {
    {deviceState::ringing, nullptr, ring},
    {deviceState::disconnected, "Line selected is now disconnected.\r\n", nullptr},
    {deviceState::outOfService, "Line selected is now Out of Service.\r\n", nullptr},
    {deviceState::maintenance, "Line selected is now out for maintenance.\r\n", nullptr},
    {deviceState::reinitialise, nullptr, reinitialise},
    {deviceState::capabilitiesChanged, nullptr, nullptr},
    {deviceState::removed, "A Line device has been removed - no action taken.", nullptr},
};
constexpr StateAction unknownState{0, "Unhandled LINEDEVSTATE message", nullptr};

TelephonyDevice* deviceOfLine(uint32_t line) noexcept {
    auto devices = knownDevices();
    auto found = std::ranges::find_if(
        devices, [=](const TelephonyDevice& device) { return line != 0 && device.lineHandle == line; });
    return found == devices.end() ? nullptr : &*found;
}

} // namespace

void handleDeviceState(const Report& report) {
    log("DEV STATE: device:%x message:%x parm1:%x parm2:%x parm3:%x", report.handle, report.message,
        report.p1, report.p2, report.p3);
    TelephonyDevice* device = deviceOfLine(report.handle);
    if (device == nullptr) {
        log("LINEDEV_CALLSTATE: Unknown device ID '0x%lx'.", static_cast<unsigned long>(report.handle));
        return;
    }
    Handling handling(*device);
    const auto* found = std::ranges::find(stateActions, report.p1, &StateAction::state);
    const StateAction& action = found == std::end(stateActions) ? unknownState : *found;
    if (action.text != nullptr)
        log("%s", action.text);
    if (action.act != nullptr)
        action.act(*device, report);
}

} // namespace brisolt::telephony
