#include "telephony/call_messages.h"

#include <algorithm>
#include <cstring>

#include "platform/serial.h"
#include "port/open_close.h"
#include "port/port_table.h"
#include "telephony/call_device.h"
#include "telephony/handling.h"
#include "telephony/hang_up.h"
#include "telephony/line_requests.h"
#include "telephony/telephony_port.h"

namespace brisolt::telephony {

namespace {

namespace callState = service::callState;
namespace disconnectedBy = service::disconnectedBy;

constexpr uint32_t identifierSize = 1048;

// ---- connected: the call becomes a port

/// False, after its log entry, when the service gives no handle.
bool fetchHandle(const Use& use, uint32_t call, uint32_t& handle) {
    auto refused = [](int32_t result) { log("lineGetID unhandled error: %d", result); };
    auto identifier =
        fetchIdentifier(use.device().lineHandle, call, service::select::call, identifierSize, refused);
    if (!identifier)
        return false;
    const char* data = identifier->stringSize < sizeof handle
                           ? nullptr
                           : identifier.part(identifier->stringOffset, sizeof handle);
    if (data == nullptr) {
        refused(service::result::recordTooSmall);
        return false;
    }
    std::memcpy(&handle, data, sizeof handle);
    return true;
}

/// The handle came to us: nobody else will close it.
void closeHandle(int32_t handle) noexcept {
    serial::closeForeign(handle);
}

void closeOpenPort(int32_t number) {
    if (HeldPort port(number); port)
        closePort(*port);
}

void portFailed(const Use& use, int32_t handle, int32_t code) {
    int32_t number = use.device().devicePort;
    log("Failed to open tapi port: %d Error Code:%d", number, code);
    if (use.current()) // else it is a later use's
        closeOpenPort(number);
    closeHandle(handle);
    hangUp(use);
    use.change([&] { use.device().commHandle = 0; });
}

void portIsThere(const Use& use) {
    TelephonyDevice& device = use.device();
    bool live = false;
    use.change([&] {
        live = device.lineHandle != 0;
        if (!live)
            return;
        device.autoAnswerState = autoAnswer::connected;
        device.portOpened = 1;
        device.connected = 1;
    });
    if (!live) // disconnected or hung up while it was opened
        return closeOpenPort(device.devicePort);
    log("Opened Tapi Port: %d", device.devicePort.load());
    log("Connected Event");
}

/// A service that wants to know of the port hands over the other end's bytes alone, and may have held some back.
service::PortOpen* portOpenOfService() {
    return reinterpret_cast<service::PortOpen*>(service::entryPoint("brisoltPortOpen"));
}

void openPortFor(const Use& use, uint32_t call) {
    uint32_t handle = 0;
    if (!fetchHandle(use, call, handle))
        return;
    log("Connected!  Starting communications!");
    TelephonyDevice& device = use.device();
    auto descriptor = static_cast<int32_t>(handle);
    if (!use.change([&] { device.commHandle = handle; })) // disconnected meanwhile
        return closeHandle(descriptor);
    log("Got device handle: %d", descriptor);
    auto* portOpen = portOpenOfService();
    int32_t opened =
        openTelephonyPort(device.devicePort, descriptor, portOpen != nullptr ? Held::read : Held::discarded);
    if (opened == device.devicePort) {
        if (portOpen != nullptr)
            portOpen(call);
        portIsThere(use);
    } else {
        portFailed(use, descriptor, opened);
    }
}

/// A connection that is reported twice opens one port.
void connected(const Use& use, const Report& report) {
    TelephonyDevice& device = use.device();
    bool first = false;
    use.change([&] { first = device.connected == 0 && device.openingPort.exchange(1) == 0; });
    if (!first)
        return;
    openPortFor(use, report.handle);
    use.change([&] { device.openingPort = 0; });
}

// ---- the other states

void offered(const Use& use, const Report& report) {
    use.change([&] { use.device().offeredCall = report.handle; });
    log(" Got Offering State - arming incoming call:%x", report.handle);
}

void busy(const Use& use, const Report&) {
    hangUp(use);
    use.fail(fail::busy);
}

struct Cause {
    uint32_t detail;
    int32_t code; ///< 0: none
    const char* text;
};
constexpr Cause causes[] = {
    {disconnectedBy::normal, 0, "Remote Party Disconnected"},
    {disconnectedBy::unknown, 0, "Disconnected: Unknown reason"},
    {disconnectedBy::reject, 0, "Remote Party rejected call"},
    {disconnectedBy::pickup, 0, "Disconnected: Local phone picked up"},
    {disconnectedBy::forwarded, 0, "Disconnected: Forwarded"},
    {disconnectedBy::busy, fail::busy, "Disconnected: Busy"},
    {disconnectedBy::noAnswer, fail::noAnswer, "Disconnected: No Answer"},
    {disconnectedBy::badAddress, 0, "Disconnected: Bad Address"},
    {disconnectedBy::unreachable, 0, "Disconnected: Unreachable"},
    {disconnectedBy::congestion, 0, "Disconnected: Congestion"},
    {disconnectedBy::incompatible, 0, "Disconnected: Incompatible"},
    {disconnectedBy::unavailable, fail::unavailable, "Disconnected: Unavail"},
    {disconnectedBy::noDialTone, fail::noDialTone, "Disconnected: No Dial Tone"},
};
constexpr Cause unknownCause{0, 0, "Disconnected: LINECALLSTATE; Bad Reason"};

void disconnected(const Use& use, const Report& report) {
    const auto* found = std::ranges::find(causes, report.p2, &Cause::detail);
    const Cause& cause = found == std::end(causes) ? unknownCause : *found;
    bool wasBusy = cause.detail == disconnectedBy::busy;
    if (wasBusy)
        log("Got Busy signal while WaitForCallState");
    log("%s", cause.text);
    if (cause.code != 0)
        use.fail(cause.code);
    use.change([&] { use.device().callState = wasBusy ? callState::busy : callState::idle; });
}

/// An incoming call that never became one must not be the last that an armed device sees.
void armAgain(const Use& use, const Report& report) {
    TelephonyDevice& device = use.device();
    uint32_t over = 0;
    use.change([&] {
        bool waits = device.autoAnswerArmed == 1 && device.connected == 0 && device.openingPort == 0 &&
                     device.hangupInProgress == 0;
        if (report.handle == 0)
            return;
        if (device.offeredCall == report.handle)
            over = takeOffer(device);
        else if (waits && device.callHandle == report.handle)
            over = takeCall(device);
        if (waits && over != 0)
            device.autoAnswerState = autoAnswer::armed;
    });
    if (over != 0)
        callService([=] { return service::lineDeallocateCall(over); });
}

struct StateAction {
    uint32_t state;
    const char* text;                       ///< null: the action tells
    void (*act)(const Use&, const Report&); ///< null: the text is all
};
constexpr StateAction stateActions[] = {
    {callState::idle, "Line idle", armAgain},
    {callState::offering, nullptr, offered},
    {callState::accepted, nullptr, offered},
    {callState::dialTone, "Dial Tone Event", nullptr},
    {callState::dialling, "Dialing", nullptr},
    {callState::ringBack, "RingBack", nullptr},
    {callState::busy, "Line busy", busy},
    {callState::specialInformation, "Special Info, probably couldn't dial number", nullptr},
    {callState::connected, nullptr, connected},
    {callState::proceeding, "Proceeding", nullptr},
    {callState::disconnected, nullptr, disconnected},
};
constexpr StateAction unknownState{0, "Unhandled LINECALLSTATE message", nullptr};

void actOnState(const Use& use, const Report& report) {
    const auto* found = std::ranges::find(stateActions, report.p1, &StateAction::state);
    const StateAction& action = found == std::end(stateActions) ? unknownState : *found;
    if (action.text != nullptr)
        log("%s", action.text);
    if (action.act != nullptr)
        action.act(use, report);
}

/// Whether the message is to be acted on with the privilege that it gives.
bool takePrivilege(const Use& use, uint32_t privilege) {
    switch (privilege) {
    case 0: return true;
    case service::privilege::monitor:
        log("line given monitor privilege; closing");
        use.fail(fail::monitorPrivilege);
        return false;
    case service::privilege::owner: // noted as a fault, and yet an owner can go on
        log("line given owner privilege; closing");
        use.fail(fail::ownerPrivilege);
        return true;
    default:
        log("Unknown LINECALLPRIVILEGE message: closing");
        hangUp(use);
        use.fail(fail::unknownPrivilege);
        return false;
    }
}

} // namespace

void handleCallState(const Report& report) {
    log("LINE CALL STATE: call:%x message:%x parm1:%x parm2:%x parm3:%x", report.handle, report.message,
        report.p1, report.p2, report.p3);
    bool offered = report.p1 == callState::offering || report.p1 == callState::accepted;
    TelephonyDevice* device = deviceOfCall(report.handle, offered);
    if (device == nullptr)
        return;
    Use use(*device);
    Handling handling(*device);
    use.change([&] {
        device->callState = report.p1;
        device->callStateChanged = 1;
    });
    wakeWaits();
    if (device->cancelRequested != 0) {
        log("Cancel Call DeviceID:%d", use.index());
        hangUp(use);
        use.fail(fail::cancelled);
    } else if (takePrivilege(use, report.p3)) {
        actOnState(use, report);
    }
}

} // namespace brisolt::telephony
