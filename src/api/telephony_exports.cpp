// Telephony.
#include "brisolt/telephony.h"

#include "api/border.h"
#include "port/open_close.h"
#include "telephony/auto_answer.h"
#include "telephony/connect_thread.h"
#include "telephony/context.h"
#include "telephony/hang_up.h"
#include "telephony/telephony_log.h"
#include "telephony/telephony_port.h"

using namespace brisolt;
using telephony::TelephonyDevice;

namespace {

constexpr int32_t notInitialised = -6, noDevices = -2, noSuchDevice = -3;

/// f(device) for the device of that name, else the code of the refusal.
template <class F> int32_t onDevice(const char* name, F&& f) noexcept {
    if (telephony::deviceCount() == 0)
        return noDevices;
    TelephonyDevice* device = telephony::findDevice(name);
    return device == nullptr ? noSuchDevice : guarded(-1, [&] { return f(*device); });
}

/// The same with one code for both refusals, while telephony is initialised.
template <class F> int32_t onInitialisedDevice(const char* name, int32_t none, F&& f) noexcept {
    if (!telephony::initialised())
        return notInitialised;
    TelephonyDevice* device = telephony::findDevice(name);
    return device == nullptr ? none : f(*device);
}

const char* shown(const char* text) noexcept {
    return text == nullptr ? "" : text;
}

} // namespace

// ---- the context and its devices

BRISOLT_EXPORT int32_t ComTAPI_SetModemWaitTime(uint32_t seconds) {
    telephony::setModemWaitTime(seconds);
    return 1;
}

BRISOLT_EXPORT int32_t ComTAPI_INIT(const char* logFile) {
    return guarded(-1, [=] { return telephony::initialise(logFile); });
}

BRISOLT_EXPORT int32_t ComTAPI_GetModemCount(void) {
    return telephony::initialised() ? telephony::deviceCount() : -1;
}

BRISOLT_EXPORT int32_t ComTAPI_GetModemName(int32_t index, char* buffer) {
    if (!telephony::initialised())
        return notInitialised;
    if (buffer == nullptr)
        return 0;
    *buffer = '\0';
    if (index < 0 || index >= telephony::deviceLimit)
        return 0;
    return telephony::copyLineName(telephony::allDevices()[static_cast<std::size_t>(index)], buffer);
}

BRISOLT_EXPORT int32_t ComTAPI_GetPort(const char* deviceName) {
    return onInitialisedDevice(deviceName, -1,
                               [](TelephonyDevice& device) { return device.devicePort.load(); });
}

BRISOLT_EXPORT int32_t Com_TAPI_Shutdown(void) {
    return guarded(1, telephony::shutDown);
}

// ---- calls

BRISOLT_EXPORT int32_t ComTAPI_Connect(const char* deviceName, const char* phoneNumber,
                                       const char* dialMode) {
    return guarded(-5, [=] { return telephony::connect({deviceName, phoneNumber, dialMode}); });
}

BRISOLT_EXPORT int32_t ComTAPI_Connect_Thread(const char* deviceName, const char* phoneNumber,
                                              const char* dialMode) {
    return guarded(-30, [=] { return telephony::connectOnThread({deviceName, phoneNumber, dialMode}); });
}

BRISOLT_EXPORT int32_t ComTAPI_Connect_Status(const char* deviceName) {
    TelephonyDevice* device = telephony::findDevice(deviceName);
    return device == nullptr ? noSuchDevice : device->connectStatus.load();
}

BRISOLT_EXPORT int32_t ComTAPI_Cancel(const char* deviceName) {
    telephony::log("ComTAPI_Cancel Called - Device: %s", shown(deviceName));
    if (!telephony::initialised())
        return notInitialised;
    return onDevice(deviceName, [=](TelephonyDevice& device) {
        telephony::log("Cancel called on TAPI Device: %s DeviceID: %d port: %d", deviceName,
                       telephony::indexOf(device), device.devicePort.load());
        telephony::cancel(device);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComTAPI_Disconnect(const char* deviceName) {
    telephony::log("ComTAPI_Disconnect");
    return onDevice(deviceName, [](TelephonyDevice& device) {
        telephony::disconnect(device);
        return 1;
    });
}

// ---- auto-answer

BRISOLT_EXPORT int32_t ComTAPI_AutoAnswer(const char* deviceName, int32_t rings) {
    return guarded(-4, [=] { return telephony::armAutoAnswer(deviceName, rings); });
}

BRISOLT_EXPORT int32_t ComTAPI_GetAutoAnswerState(const char* deviceName) {
    return onInitialisedDevice(deviceName, noSuchDevice, [](TelephonyDevice& device) {
        return static_cast<int32_t>(device.autoAnswerState.load());
    });
}

BRISOLT_EXPORT int32_t ComTAPI_GetAutoAnswer_ConnectPort(const char* deviceName) {
    return onInitialisedDevice(deviceName, noSuchDevice,
                               [](TelephonyDevice& device) { return device.devicePort.load(); });
}

// ---- ports of calls

BRISOLT_EXPORT int32_t ComTAPI_OPENPORT(int32_t port, int32_t handle) {
    return telephony::openTelephonyPort(port, handle);
}

BRISOLT_EXPORT int32_t ComTAPI_CLOSEPORT(int32_t port) {
    return onPort(port, -1, closePort);
}
