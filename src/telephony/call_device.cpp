#include "telephony/call_device.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/thread.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "telephony/service_records.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

namespace {

/// How long a message may be kept waiting for the handle that it is about. A request takes no longer, unless
/// the service itself waits for the message to be handled.
constexpr uint32_t handlePatience = 1000; ///< milliseconds

template <class Condition> TelephonyDevice* findKnown(Condition condition) noexcept {
    auto devices = knownDevices();
    auto found = std::ranges::find_if(devices, condition);
    return found == devices.end() ? nullptr : &*found;
}

TelephonyDevice* owner(uint32_t call) noexcept {
    if (call == 0)
        return nullptr;
    TelephonyDevice* device =
        findKnown([=](const TelephonyDevice& candidate) { return candidate.callHandle == call; });
    if (device != nullptr)
        return device;
    return findKnown([=](const TelephonyDevice& candidate) { return candidate.offeredCall == call; });
}

/// The device whose make-call request is under way on this thread.
TelephonyDevice* diallingHere() noexcept {
    return findKnown([](const TelephonyDevice& device) { return device.dialThread == thread::currentId(); });
}

/// The first word about a call can be faster than the answer to its request, which tells the handle.
TelephonyDevice* ownerAfterDialling(uint32_t call) {
    HeldPort context(contextPort);
    auto until = clock::Deadline::in(handlePatience);
    while (context && !context->ending()) {
        uint32_t seen = context->events.count();
        if (TelephonyDevice* device = owner(call))
            return device;
        bool dialling =
            findKnown([](const TelephonyDevice& device) { return device.dialThread != 0; }) != nullptr;
        if (!dialling || until.passed())
            break;
        sleepOnPort(*context, seen, {}, until);
    }
    return nullptr;
}

bool hasLine(const TelephonyDevice& device) noexcept {
    return device.lineHandle != 0;
}

/// The call of a device that answers has ended before it was one.
bool callIsOver(const TelephonyDevice& device) noexcept {
    return device.autoAnswerArmed == 1 && device.connected == 0 && device.openingPort == 0 &&
           device.callState == service::callState::idle;
}

bool awaitsCall(const TelephonyDevice& device) noexcept {
    return hasLine(device) && device.autoAnswerArmed == 1 && device.offeredCall == 0 &&
           (device.callHandle == 0 || callIsOver(device));
}

TelephonyDevice* deviceForOffer() noexcept {
    TelephonyDevice* device = findKnown(awaitsCall);
    return device != nullptr ? device : findKnown(hasLine);
}

} // namespace

TelephonyDevice* deviceOfCall(uint32_t call, bool offered) {
    if (TelephonyDevice* device = owner(call))
        return device;
    if (offered)
        return deviceForOffer();
    if (TelephonyDevice* device = diallingHere())
        return device;
    if (TelephonyDevice* device = ownerAfterDialling(call))
        return device;
    // Asked last: a service may give the handle of an old call to a new one.
    return isOver(call) ? nullptr : findKnown(hasLine);
}

void claimOffer(TelephonyDevice& device) {
    if (device.offeredCall != 0 || (device.callHandle != 0 && !callIsOver(device)))
        return;
    TelephonyDevice* other = findKnown([&](const TelephonyDevice& candidate) {
        return &candidate != &device && hasLine(candidate) && candidate.offeredCall != 0 &&
               candidate.autoAnswerArmed == 1 && candidate.autoAnswerState == autoAnswer::armed;
    });
    if (other != nullptr)
        device.offeredCall = other->offeredCall.exchange(0);
}

} // namespace brisolt::telephony
