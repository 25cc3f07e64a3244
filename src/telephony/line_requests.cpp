#include "telephony/line_requests.h"

namespace brisolt::telephony {

namespace {

namespace bearer = service::bearer;

constexpr uint32_t deviceCapabilitiesSize = 1276; ///< first guesses; records grow when they must
constexpr uint32_t addressStatusSize = 1088;
constexpr uint32_t callStatusSize = 1080;

constexpr auto untold = [](int32_t) {};

// Voice before data: on an ordinary telephone line a modem's data call is a voice call to the exchange.
uint32_t chooseBearerMode(uint32_t offered) {
    if ((offered & bearer::voice) != 0) {
        log("DevCaps BearerModes: VOICE MODE LINE");
        return bearer::voice;
    }
    if ((offered & bearer::data) != 0) {
        log("DevCaps BearerModes: DATA MODE LINE");
        return bearer::data;
    }
    return bearer::multiUse;
}

} // namespace

uint32_t negotiateVersion(int32_t index, Negotiation when) {
    bool tells = when == Negotiation::atInitialisation;
    uint32_t version = 0;
    service::ExtensionId extension{};
    Answer answer = callService(
        [&] {
            return service::lineNegotiateVersion(applicationHandle(), static_cast<uint32_t>(index),
                                                 service::lowestVersion, service::highestVersion, &version,
                                                 &extension);
        },
        [&](int32_t result) {
            if (tells)
                log("Local Negotiated Version: %x Negotiate Version Return: %x", version,
                    static_cast<uint32_t>(result));
        });
    if (answer.ok)
        return version;
    auto code = static_cast<uint32_t>(answer.result);
    bool incompatible = answer.result == service::result::incompatibleVersion;
    if (incompatible && tells)
        log("INCOMPATIBLE API VERSION of TAPI. NegotiateAPI return: %x", code);
    else if (incompatible)
        log("lineNegotiateAPIVersion, INCOMPATIBLEAPIVERSION.");
    else if (tells)
        log("lineNegotiateAPIVersion: unhandled error:%x DeviceID:%d", code, index);
    return 0;
}

ServiceRecord<service::DeviceCapabilities> fetchDeviceCapabilities(int32_t index, uint32_t version) {
    return fetch<service::DeviceCapabilities>(
        deviceCapabilitiesSize,
        [=](service::DeviceCapabilities* capabilities) {
            return service::lineGetDeviceCapabilities(applicationHandle(), static_cast<uint32_t>(index),
                                                      version, 0U, capabilities);
        },
        [=](int32_t result) {
            log("lineGetDevCaps = %d dwDeviceID:%d dwAPIVersion:%x", result, index, version);
        },
        untold);
}

ServiceRecord<service::AddressStatus> fetchAddressStatus(uint32_t line) {
    return fetch<service::AddressStatus>(
        addressStatusSize,
        [=](service::AddressStatus* status) { return service::lineGetAddressStatus(line, 0U, status); },
        untold, untold);
}

ServiceRecord<service::CallStatus> fetchCallStatus(uint32_t call) {
    return fetch<service::CallStatus>(
        callStatusSize, [=](service::CallStatus* status) { return service::lineGetCallStatus(call, status); },
        untold, [](int32_t result) { log("lineGetCallStatus unhandled error: %d", result); });
}

Lack judge(TelephonyDevice& device, const service::DeviceCapabilities& capabilities, const LackTexts& texts) {
    uint32_t modes = capabilities.bearerModes;
    log("DevCaps BearerModes: %x", modes);
    if ((modes & (bearer::voice | bearer::data | bearer::multiUse)) == 0) {
        log(texts.bearerModes, modes);
        return Lack::bearerModes;
    }
    device.bearerMode = chooseBearerMode(modes);
    if (texts.tellsAll)
        log("DevCaps MediaModes: %x", capabilities.mediaModes);
    if (capabilities.mediaModes == 0) {
        log(texts.mediaModes, capabilities.mediaModes);
        return Lack::mediaModes;
    }
    if (texts.tellsAll)
        log("DevCaps Line Features: %x", capabilities.lineFeatures);
    if ((capabilities.lineFeatures & service::feature::lineMakeCall) == 0) {
        if (texts.makeCall != nullptr)
            log(texts.makeCall, capabilities.lineFeatures);
        return Lack::makeCall;
    }
    return Lack::nothing;
}

Answer closeLine(uint32_t line) {
    return callService([=] { return service::lineClose(line); });
}

} // namespace brisolt::telephony
