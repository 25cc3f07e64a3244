#include "telephony/call_wait.h"

#include <algorithm>

#include "platform/clock.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "telephony/context.h"
#include "telephony/handling.h"
#include "telephony/hang_up.h"
#include "telephony/service_records.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

namespace {

namespace callState = service::callState;

constexpr uint32_t passLength = 200; ///< milliseconds

/// States in which a call that is to connect has failed.
struct Failure {
    uint32_t state;
    int32_t code; ///< 0: somebody else knows the cause
    const char* text;
};
constexpr Failure failures[] = {
    {callState::idle, 0, "Got Idle state signal while WaitForCallState"},
    {callState::busy, fail::busy, "Got Busy signal while WaitForCallState"},
    {callState::specialInformation, 0, "Got SPECIALINFO signal while WaitForCallState"},
    {callState::disconnected, 0, "Got DISCONNECTED signal while WaitForCallState"},
};

Waited end(TelephonyDevice& device, Waited how) noexcept {
    device.waitEnded = 1;
    return how;
}

Waited abortedBy(const char* text) {
    log("%s", text);
    return Waited::aborted;
}

/// Whether a call that is to connect cannot any more.
bool hasFailed(const Use& use, bool late) {
    TelephonyDevice& device = use.device();
    uint32_t state = device.callState;
    log("Looking for connected: Device %d Call State: %x", use.index(), state);
    if (late && state == 0) {
        log("Timed-out waiting for modem to do something");
        return true;
    }
    const auto* failure = std::ranges::find(failures, state, &Failure::state);
    if (failure == std::end(failures))
        return false;
    log("%s", failure->text);
    if (failure->code != 0)
        use.fail(failure->code);
    return true;
}

} // namespace

bool endIfCancelled(const Use& use) {
    if (use.device().cancelRequested == 0)
        return false;
    log("Cancel Call DeviceID:%d", use.index());
    use.failInAnyCase(fail::cancelled);
    hangUp(use);
    return true;
}

void passTime(Port& context, uint32_t seen) {
    auto until = clock::Deadline::in(passLength);
    pumpMessages();
    while (context.events.count() == seen && !context.ending() && !until.passed()) {
        sleepOnPort(context, seen, {.messages = true}, until);
        pumpMessages();
    }
}

Waited waitForCallState(const Use& use, uint32_t wanted) {
    TelephonyDevice& device = use.device();
    HeldPort context(contextPort);
    if (!context)
        return Waited::aborted;
    device.waitEnded = 0;
    uint32_t start = clock::ticks();
    device.callStateChanged = 0;
    bool connecting = wanted == callState::connected;
    for (;;) {
        uint32_t seen = context->events.count();
        bool late = clock::ticks() - start > modemWaitTime();
        // Read first: a report in progress that is not seen now cannot have changed it yet.
        uint32_t state = device.callState;
        bool unsettled = connecting && !late && Handling::elsewhere(device);
        if (wanted != 0 && state == wanted && !unsettled)
            return end(device, Waited::reached);
        passTime(*context, seen);
        late = clock::ticks() - start > modemWaitTime();
        if (!use.current() || context->ending())
            return abortedBy("WAITABORTED");
        if (connecting && !late && Handling::elsewhere(device))
            continue;
        if (endIfCancelled(use))
            return Waited::aborted;
        if (wanted == 0 && device.callStateChanged != 0)
            return end(device, Waited::reached);
        if (device.waitEnded != 0)
            return abortedBy("WAITABORTED");
        if (connecting && hasFailed(use, late))
            return end(device, Waited::failed);
        if (late) {
            log("WAITTIMEDOUT");
            return end(device, Waited::failed);
        }
    }
}

} // namespace brisolt::telephony
