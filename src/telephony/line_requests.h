// What is asked of a line device before it is used, in the words of the service: the version, the
// capabilities and how they are judged, the line itself.
#pragma once

#include <cstdint>

#include "telephony/context.h"
#include "telephony/service_binding.h"
#include "telephony/service_calls.h"
#include "telephony/telephony_device.h"

namespace brisolt::telephony {

enum class Negotiation { atInitialisation, later };
/// The version to use with the device; 0 there is none.
uint32_t negotiateVersion(int32_t index, Negotiation when);

/// Empty when they cannot be had.
ServiceRecord<service::DeviceCapabilities> fetchDeviceCapabilities(int32_t index, uint32_t version);
ServiceRecord<service::AddressStatus> fetchAddressStatus(uint32_t line);
ServiceRecord<service::CallStatus> fetchCallStatus(uint32_t call);

/// The identifier of the line or of its call for the modem class; empty after `refused` has heard the code.
template <class Refused>
ServiceRecord<service::VariableString> fetchIdentifier(uint32_t line, uint32_t call, uint32_t select,
                                                       uint32_t startSize, Refused refused) {
    return fetch<service::VariableString>(
        startSize,
        [=](service::VariableString* identifier) {
            return service::lineGetId(line, 0U, call, select, identifier, service::modemClass);
        },
        [](int32_t) {}, refused);
}

enum class Lack { nothing, bearerModes, mediaModes, makeCall };

/// What the log is told about capabilities that do not do, as formats that may use the value concerned.
struct LackTexts {
    const char* bearerModes;
    const char* mediaModes;
    const char* makeCall; ///< null: nothing
    bool tellsAll;        ///< the media modes and the line features are logged before they are judged
};
/// The first thing that a modem for data calls would have and this device does not. Notes the bearer mode.
Lack judge(TelephonyDevice& device, const service::DeviceCapabilities& capabilities, const LackTexts& texts);

/// Opens the device's line for data calls. `each` sees the result of every attempt.
template <class Each>
Answer openLine(int32_t index, uint32_t version, uint32_t privileges, uint32_t& line, Each each) {
    return callService(
        [&] {
            return service::lineOpen(applicationHandle(), static_cast<uint32_t>(index), &line, version, 0U,
                                     uintptr_t{0}, privileges, service::media::dataModem, nullptr);
        },
        each);
}
Answer closeLine(uint32_t line);

} // namespace brisolt::telephony
