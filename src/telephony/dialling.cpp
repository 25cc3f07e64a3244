#include "telephony/dialling.h"

#include <cstring>

#include "platform/thread.h"
#include "telephony/call_wait.h"
#include "telephony/hang_up.h"
#include "telephony/line_requests.h"
#include "telephony/line_set_up.h"

namespace brisolt::telephony {

namespace {

constexpr uint32_t addressCapabilitiesSize = 1252;
constexpr char displayableAddress[] = "#";

/// The call parameters with the displayable address behind them.
struct Parameters {
    service::CallParameters fixed;
    char displayable[sizeof displayableAddress];
};

Parameters callParameters(uint32_t bearerMode) noexcept {
    Parameters parameters{};
    service::CallParameters& fixed = parameters.fixed;
    fixed.totalSize = sizeof fixed + sizeof displayableAddress;
    fixed.bearerMode = bearerMode;
    fixed.mediaMode = service::media::dataModem;
    fixed.callFlags = service::callFlag::idle;
    fixed.addressMode = service::addressMode::byIdentifier;
    fixed.displayableAddressSize = sizeof displayableAddress;
    fixed.displayableAddressOffset = sizeof fixed;
    std::memcpy(parameters.displayable, displayableAddress, sizeof displayableAddress);
    return parameters;
}
static_assert(offsetof(Parameters, displayable) == sizeof(service::CallParameters));

bool hasAddressCapabilities(const Use& use) {
    auto capabilities = fetch<service::AddressCapabilities>(
        addressCapabilitiesSize,
        [&](service::AddressCapabilities* record) {
            return service::lineGetAddressCapabilities(applicationHandle(),
                                                       static_cast<uint32_t>(use.index()), 0U,
                                                       use.device().apiVersion.load(), 0U, record);
        },
        [](int32_t) {}, [](int32_t result) { log("lineGetAddressCaps unhandled error: %d", result); });
    return static_cast<bool>(capabilities);
}

/// Marks the thread inside the make-call request: messages of a call whose handle nobody knows yet are its.
class DialMark {
public:
    explicit DialMark(const Use& use) : use_(use) {
        use_.change([&] { use_.device().dialThread = thread::currentId(); });
    }
    ~DialMark() {
        use_.change([&] { use_.device().dialThread = 0; });
        wakeWaits();
    }
    DialMark(const DialMark&) = delete;
    DialMark& operator=(const DialMark&) = delete;

private:
    const Use& use_;
};

void forget(uint32_t call) {
    noteOver(call);
    callService([=] { return service::lineDrop(call, nullptr, 0U); });
    callService([=] { return service::lineDeallocateCall(call); });
}

/// The service's answer to the request; negative: refused.
int32_t makeCall(const Use& use, const DialString& toDial) {
    TelephonyDevice& device = use.device();
    Parameters parameters = callParameters(device.bearerMode);
    DialMark mark(use);
    uint32_t line = use.line(); // not a later use's, on which nobody has asked for this call
    uint32_t call = 0;
    int32_t result = callService([&] {
                         return service::lineMakeCall(line, &call, toDial.text, 0U, &parameters.fixed);
                     }).result;
    if (result >= 0 && !use.change([&] { device.callHandle = call; }) && call != 0)
        forget(call); // disconnected meanwhile
    return result;
}

bool dialCallInParts(const Use& use, const DialString& toDial) {
    if (!hasAddressCapabilities(use)) {
        use.fail(fail::capabilities);
        return false;
    }
    if (endIfCancelled(use))
        return false;
    int32_t result = makeCall(use, toDial);
    if (result < 0) {
        log("Error in lineMakeCall: %d", result);
        use.fail(fail::makeCall);
        return false;
    }
    if (waitForCallState(use, service::callState::connected) != Waited::reached) {
        log("WaitForCallState failed");
        use.fail(fail::waiting);
        return false;
    }
    log("TAPI lineMakeCall Completed - return: %d phone number:%s", result, toDial.text);
    return true;
}

} // namespace

DialString dialString(const char* phoneNumber, const char* dialMode) noexcept {
    DialString made;
    std::size_t length = phoneNumber == nullptr ? 0 : strnlen(phoneNumber, longestNumber + 1);
    if (phoneNumber == nullptr || length > longestNumber)
        return made;
    made.text[0] = dialMode != nullptr && std::strcmp(dialMode, "P") == 0 ? 'P' : 'T';
    std::memcpy(made.text + 1, phoneNumber, length);
    return made;
}

void dial(const Use& use, const DialString& toDial) {
    auto status = setUpLine(use, Purpose::placingCalls);
    if (!status)
        return;
    if ((status->addressFeatures & service::feature::addressMakeCall) == 0) {
        log("This line is not available to place a call.");
        hangUp(use);
        log("Unable to Use Line");
        use.fail(fail::lineInUse);
        return;
    }
    if (dialCallInParts(use, toDial)) {
        log("DialCallInParts succeeded.");
        return;
    }
    log("DialCallInParts failed.");
    hangUp(use);
    use.fail(fail::dialling);
}

} // namespace brisolt::telephony
