#include "telephony/line_set_up.h"

#include "platform/message_box.h"
#include "telephony/hang_up.h"
#include "telephony/line_requests.h"

namespace brisolt::telephony {

namespace {

using AddressStatus = ServiceRecord<service::AddressStatus>;

constexpr LackTexts lackTexts{.bearerModes =
                                  "The selected line doesn't support DATA or VOICE or MULTIUSE capabilities",
                              .mediaModes = "The selected line doesn't support DATAMODEM capabilities",
                              .makeCall = nullptr, // told below, after the message box
                              .tellsAll = false};
constexpr const char* noMakeCall = "The selected line doesn't support MAKECALL capabilities";

/// In what the two purposes differ. The statusMessages text is a format for the service's code.
struct SetUpStyle {
    uint32_t privileges;
    bool tellsOpening;
    const char* version;
    const char* capabilities;
    const char* inUse;
    const char* statusMessages;
    const char* addressStatus;
};
constexpr SetUpStyle placing{
    .privileges = service::privilege::none,
    .tellsOpening = false,
    .version = "Line Version unsupported",
    .capabilities = "Error on Requested line - Unable to Use Line",
    .inUse = "Line is already in use by a non-TAPI application or by another TAPI Service Provider.",
    .statusMessages = "lineSetStatusMessages unhandled error: %d",
    .addressStatus = "Unable to Use Line"};
constexpr SetUpStyle answering{
    .privileges = service::privilege::owner,
    .tellsOpening = true,
    .version = "Unable to Use Line",
    .capabilities = "Unable to Use Line",
    .inUse = "Line is already in use by a non-TAPI application or by another TAPI Service Provider",
    .statusMessages = "lineSetStatusMessages unhandled error: %x",
    .addressStatus = "Unable to use line"};

/// The version to use, 0 when the device cannot be used.
uint32_t checkDevice(const Use& use, const SetUpStyle& style) {
    TelephonyDevice& device = use.device();
    uint32_t version = negotiateVersion(use.index(), Negotiation::later);
    device.apiVersion = version;
    if (version == 0) {
        log("%s", style.version);
        use.fail(fail::version);
        return 0;
    }
    auto capabilities = fetchDeviceCapabilities(use.index(), version);
    if (!capabilities) {
        log("%s", style.capabilities);
        use.fail(fail::capabilities);
        return 0;
    }
    switch (judge(device, *capabilities.get(), lackTexts)) {
    case Lack::nothing: return version;
    case Lack::bearerModes: break; // leaves no code, and callers count on that
    case Lack::mediaModes: use.fail(fail::noMediaModes); break;
    case Lack::makeCall:
        messageBox::show("Error on Requested line", noMakeCall);
        log("%s", noMakeCall);
        use.fail(fail::noMakeCall);
        break;
    }
    return 0;
}

/// False when the line could not be had.
bool open(const Use& use, uint32_t version, const SetUpStyle& style) {
    uint32_t line = 0;
    Answer opened = openLine(use.index(), version, style.privileges, line, [&](int32_t) {
        if (style.tellsOpening)
            log("lineOpen handle:%x lineApp:%x DeviceID:%d APIVersion:%x", line, applicationHandle(),
                use.index(), version);
    });
    if (opened.result == service::result::lineInUse) {
        hangUp(use);
        log("%s", style.inUse);
        use.fail(fail::lineInUse);
        return false;
    }
    if (!opened.ok) {
        log("lineOpen unhandled error: %d", opened.result);
        log("Unable to Use Line");
        hangUp(use);
        use.fail(fail::lineOpen);
        return false;
    }
    if (use.change([&] { use.device().lineHandle = line; }))
        return true;
    closeLine(line); // disconnected meanwhile: nobody else knows of it
    return false;
}

void askForMessages(const Use& use, const SetUpStyle& style) {
    uint32_t line = use.line();
    Answer answer = callService([=] {
        return service::lineSetStatusMessages(line, service::statusMessages::allLine,
                                              service::statusMessages::allAddress);
    });
    if (answer.ok)
        return;
    log(style.statusMessages, answer.result);
    use.fail(fail::lineOpen);
}

} // namespace

AddressStatus setUpLine(const Use& use, Purpose purpose) {
    const SetUpStyle& style = purpose == Purpose::placingCalls ? placing : answering;
    uint32_t version = checkDevice(use, style);
    if (version == 0 || !open(use, version, style))
        return {};
    askForMessages(use, style);
    AddressStatus status = fetchAddressStatus(use.line());
    if (!status) {
        hangUp(use);
        log("%s", style.addressStatus);
        use.fail(fail::addressStatus);
    }
    return status;
}

} // namespace brisolt::telephony
