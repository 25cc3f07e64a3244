#include "telephony/usable_line.h"

#include "telephony/line_requests.h"

namespace brisolt::telephony {

namespace {

using Capabilities = ServiceRecord<service::DeviceCapabilities>;

constexpr LackTexts probeTexts{.bearerModes =
                                   "DevCaps doesn't support known data modem modes - bearer modes: %x.",
                               .mediaModes = "DevCaps doesn't support data modem features - Media Modes.",
                               .makeCall = "DevCaps doesn't support making calls. - Probably not a modem",
                               .tellsAll = true};

/// The two checks are the same but for what they tell.
struct CheckTexts {
    LackTexts lack;
    const char* addressStatus; ///< null: nothing is told
    const char* usable;
};

constexpr const char* noBearerMode =
    "LINEBEARERMODE_VOICE or LINEBEARERMODE_DATA or LINEBEARERMODE_MULTIUSE not supported - %x";
constexpr const char* noMediaMode = "LINEMEDIAMODE_DATAMODEM not supported";

constexpr CheckTexts placingTexts{.lack = {.bearerModes = noBearerMode,
                                           .mediaModes = noMediaMode,
                                           .makeCall = "LINEFEATURE_MAKECALL not supported ",
                                           .tellsAll = false},
                                  .addressStatus = nullptr,
                                  .usable = "Line is suitable and available for use."};
constexpr CheckTexts answeringTexts{.lack = {.bearerModes = noBearerMode,
                                             .mediaModes = noMediaMode,
                                             .makeCall = "LINEFEATURE_MAKECALL not supported",
                                             .tellsAll = false},
                                    .addressStatus = "Line NOT Useable ERROR",
                                    .usable = "Line is suitable and available for AA use."};

/// What the checks give for each lack.
int32_t reason(Lack lack) noexcept {
    switch (lack) {
    case Lack::bearerModes: return 2;
    case Lack::mediaModes: return 3;
    case Lack::makeCall: return 4;
    case Lack::nothing: break;
    }
    return 0;
}
constexpr int32_t reasonGeneral = 1, reasonInUse = 5, reasonNoIdentifier = 7;

constexpr uint32_t identifierSize = 24;

/// Names the entry that the probe refuses.
Probe refuse(TelephonyDevice& device, const char* name, Probe outcome) noexcept {
    setLineName(device, name, lineNameSize);
    return outcome;
}

/// The name in the record, null when there is none that we can read.
const char* nameIn(const Capabilities& capabilities) noexcept {
    const service::DeviceCapabilities& fixed = *capabilities.get();
    bool given = fixed.nameSize != 0 && fixed.nameOffset != 0;
    bool plain = fixed.nameFormat == service::stringFormat::plain;
    return given && plain ? capabilities.part(fixed.nameOffset, fixed.nameSize) : nullptr;
}

Probe takeName(TelephonyDevice& device, int32_t index, const Capabilities& capabilities) {
    const char* name = nameIn(capabilities);
    if (name == nullptr) {
        log("DevCaps doesn't have a valid line name.");
        return refuse(device, "Line Unnamed", Probe::unusable);
    }
    setLineName(device, name, capabilities->nameSize);
    char copy[lineNameSize];
    if (copyLineName(device, copy) == 0) {
        log("Line name started with a NULL.");
        return refuse(device, "Line Name is Empty", Probe::unusable);
    }
    log("Device %d = %s", index, copy);
    return Probe::usable;
}

/// The part of the check that is made on the open line.
int32_t checkOpenLine(uint32_t line, const CheckTexts& texts) {
    if (!fetchAddressStatus(line)) {
        if (texts.addressStatus != nullptr)
            log("%s", texts.addressStatus);
        return reasonGeneral;
    }
    if (!fetchIdentifier(line, 0, service::select::line, identifierSize, [](int32_t) {}))
        return reasonNoIdentifier;
    log("%s", texts.usable);
    return 0;
}

} // namespace

Probe probe(int32_t index) {
    TelephonyDevice& device = allDevices()[static_cast<std::size_t>(index)];
    uint32_t version = negotiateVersion(index, Negotiation::atInitialisation);
    log("dwAPIVersion = %x DeviceID:%d", version, index);
    if (version == 0) {
        log("Couldn't NegotiateAPIVersion.");
        return refuse(device, "Line Unavailable", Probe::unreachable);
    }
    auto capabilities = fetchDeviceCapabilities(index, version);
    log("I_lineGetDevCaps = %x", capabilities ? 1U : 0U);
    if (!capabilities) {
        log("Couldn't GetDevCaps.");
        return refuse(device, "Line Unavailable", Probe::unreachable);
    }
    if (judge(device, *capabilities.get(), probeTexts) != Lack::nothing)
        return refuse(device, "Line Unnamed", Probe::unusable);
    return takeName(device, index, capabilities);
}

int32_t verifyUsableLine(TelephonyDevice& device, Purpose purpose) {
    const CheckTexts& texts = purpose == Purpose::placingCalls ? placingTexts : answeringTexts;
    int32_t index = indexOf(device);
    uint32_t version = negotiateVersion(index, Negotiation::later);
    log("dwAPIVersion = %x", version);
    if (version == 0)
        return reasonGeneral;
    auto capabilities = fetchDeviceCapabilities(index, version);
    log("lpLineDevCaps = %d", capabilities ? 1 : 0);
    if (!capabilities)
        return reasonGeneral;
    if (Lack lack = judge(device, *capabilities.get(), texts.lack); lack != Lack::nothing)
        return reason(lack);
    uint32_t line = 0;
    Answer opened = openLine(index, version, service::privilege::none, line, [](int32_t) {});
    if (opened.result == service::result::lineInUse) {
        log("Line is already in use by a non-TAPI app or another Service Provider.");
        return reasonInUse;
    }
    if (!opened.ok)
        return reasonGeneral;
    int32_t result = checkOpenLine(line, texts);
    closeLine(line);
    return result;
}

} // namespace brisolt::telephony
