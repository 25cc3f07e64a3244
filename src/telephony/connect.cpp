#include "telephony/connect.h"

#include "port/open_close.h"
#include "port/port_table.h"
#include "telephony/context.h"
#include "telephony/hang_up.h"
#include "telephony/telephony_log.h"
#include "telephony/usable_line.h"

namespace brisolt::telephony {

namespace {

constexpr int32_t lineUnusable = -4;
constexpr int32_t notConnected = -5;

int32_t portOf(const TelephonyDevice& device) noexcept {
    return firstDevicePort + indexOf(device);
}

bool portIsOpen(int32_t number) noexcept {
    HeldPort port(number);
    return port && port->isOpen();
}

/// The call did not come to a port. What is left of it goes, and the device may be tried again.
int32_t endFailed(const Use& use) {
    TelephonyDevice& device = use.device();
    releaseWhatIsLeft(use);
    bool left = false;
    use.change([&] { left = device.portOpened.exchange(0) != 0; });
    if (left)
        if (HeldPort port(portOf(device)); port)
            closePort(*port);
    int32_t code = fail::waiting; // of a use that a disconnect has ended
    use.change([&] {
        code = device.failCode;
        device.connecting = 0;
    });
    if (code == 0) {
        log("Return Not Connected but no Failure code Port: %d", portOf(device));
        return notConnected;
    }
    log("Return Connect Failure Port: %d Fail Code: 0x%x", portOf(device), static_cast<uint32_t>(code));
    return code;
}

int32_t attemptCall(const Use& use, const DialString& toDial) {
    TelephonyDevice& device = use.device();
    if (verifyUsableLine(device, Purpose::placingCalls) != 0) {
        giveUp(use);
        return refuseUnusable(device);
    }
    if (!use.current()) // disconnected meanwhile: the line is not to be opened for it again
        return endFailed(use);
    use.change([&] { device.failCode = 0; });
    dial(use, toDial);
    bool connected = false;
    use.change([&] { connected = device.portOpened != 0 && device.connected != 0; });
    if (!connected || !portIsOpen(portOf(device)))
        return endFailed(use);
    log("Return CONNECTED Port: %d", portOf(device));
    return portOf(device);
}

} // namespace

int32_t lookUp(const CallRequest& request, TelephonyDevice*& device) {
    auto shown = [](const char* text) { return text == nullptr ? "" : text; };
    log("Call to Connect TAPI device: %s Phone Number: %s", shown(request.deviceName),
        shown(request.phoneNumber));
    if (!initialised()) {
        log("Return TAPI not Initialized");
        return -6;
    }
    if (deviceCount() == 0) {
        log("Return No TAPI Devices");
        return -2;
    }
    device = findDevice(request.deviceName);
    if (device == nullptr) {
        log("Return No Matching TAPI Device");
        return -3;
    }
    log("TAPI Device: %s DeviceID: %d port: %d", request.deviceName, indexOf(*device), portOf(*device));
    return 0;
}

int32_t refuseInUse(TelephonyDevice& device) {
    char name[lineNameSize];
    copyLineName(device, name);
    log("TAPI Device: %s DeviceID: %d port: %d Already Open - Returning Fail on Connect Try", name,
        indexOf(device), portOf(device));
    return -1;
}

int32_t refuseUnusable(const TelephonyDevice& device) {
    log("Return TAPI Device: %d Not usable line", indexOf(device));
    return lineUnusable;
}

int32_t placeCall(const Use& use, const DialString& toDial) {
    try {
        return attemptCall(use, toDial);
    } catch (...) { // no memory to wait with
        log("Out of Memory error, canceling action");
        return endFailed(use);
    }
}

int32_t lookUpFree(const CallRequest& request, TelephonyDevice*& device, DialString& toDial) {
    if (int32_t refusal = lookUp(request, device); refusal != 0)
        return refusal;
    if (inUse(*device))
        return refuseInUse(*device);
    toDial = dialString(request.phoneNumber, request.dialMode);
    return toDial.empty() ? refuseUnusable(*device) : 0;
}

int32_t connect(const CallRequest& request) {
    TelephonyDevice* device = nullptr;
    DialString toDial;
    if (int32_t refusal = lookUpFree(request, device, toDial); refusal != 0)
        return refusal;
    std::optional<Use> use = begin(*device, UseKind::connect);
    return use ? placeCall(*use, toDial) : refuseInUse(*device);
}

} // namespace brisolt::telephony
