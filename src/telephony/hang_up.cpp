#include "telephony/hang_up.h"

#include "platform/clock.h"
#include "platform/thread.h"
#include "port/open_close.h"
#include "port/port_table.h"
#include "telephony/call_wait.h"
#include "telephony/handling.h"
#include "telephony/line_requests.h"

namespace brisolt::telephony {

namespace {

namespace callState = service::callState;

constexpr uint32_t lastWords = 50; ///< milliseconds, for a connect thread that is about to tell its result

/// The device's hang-up, for the length of a scope.
class HangupTurn {
public:
    explicit HangupTurn(TelephonyDevice& device) noexcept : device_(device) {
        taken_ = device.hangupInProgress.exchange(1) == 0;
        if (taken_)
            device.hangupThread = thread::currentId();
    }
    ~HangupTurn() {
        if (!taken_)
            return;
        device_.hangupThread = 0;
        device_.hangupInProgress = 0;
        wakeWaits();
    }
    HangupTurn(const HangupTurn&) = delete;
    HangupTurn& operator=(const HangupTurn&) = delete;
    explicit operator bool() const noexcept { return taken_; }

private:
    TelephonyDevice& device_;
    bool taken_;
};

/// Until the hang-up on another thread is over. One of our own, further up the stack, and one that may need
/// us to finish our message first, cannot be waited for.
void awaitHangup(const Use& use) {
    TelephonyDevice& device = use.device();
    if (device.hangupThread == thread::currentId() || Handling::onThisThread())
        return;
    HeldPort context(contextPort);
    while (context && !context->ending() && use.current()) {
        uint32_t seen = context->events.count();
        if (device.hangupInProgress == 0)
            return;
        passTime(*context, seen);
    }
}

/// A handle is released by whoever takes it out of the entry. 0: somebody else has.
uint32_t callOf(const Use& use) {
    uint32_t taken = 0;
    use.change([&] { taken = takeCall(use.device()); });
    return taken;
}
uint32_t lineOf(const Use& use) {
    uint32_t taken = 0;
    use.change([&] { taken = use.device().lineHandle.exchange(0); });
    return taken;
}

void awaitIdle(const Use& use) {
    switch (waitForCallState(use, callState::idle)) {
    case Waited::failed: log("Call timed out waiting for IDLE state."); break;
    case Waited::aborted: log("WAITERR_WAITABORTED while waiting for IDLE state."); break;
    case Waited::reached: break;
    }
}

/// False when the service does not tell how the call stands.
bool endCall(const Use& use, uint32_t call) {
    auto status = fetchCallStatus(call);
    if (!status)
        return false;
    log("On Hangup - LineCallStatus: %x  Device State: %x", status->callState, use.device().callState.load());
    if (status->callState != callState::idle) {
        log("Calling lineDrop Device: %d", use.index());
        callService([=] { return service::lineDrop(call, nullptr, 0U); });
        awaitIdle(use);
        log("Call Dropped.");
    }
    if (callOf(use) != call)
        return true; // released by a disconnect meanwhile
    log("Deallocating Line");
    if (Answer answer = callService([=] { return service::lineDeallocateCall(call); }); !answer.ok)
        log("lineDeallocateCall unhandled error: %d", answer.result);
    log("Call Deallocated.");
    return true;
}

void endLine(uint32_t line) {
    log("Closing line");
    if (Answer answer = closeLine(line); !answer.ok)
        log("lineClose unhandled error: %d", answer.result);
    log("Line Closed.");
}

/// The short way: nobody waits for the call's last states.
void releaseCall(uint32_t call) {
    auto status = fetchCallStatus(call);
    if (!status)
        return;
    if (status->callState != callState::idle) {
        Answer answer = callService([=] { return service::lineDrop(call, nullptr, 0U); });
        log("Line Dropped Response: %d", answer.result);
    }
    callService([=] { return service::lineDeallocateCall(call); });
    log("Call Deallocated.");
}

void release(const Handles& handles) {
    if (handles.call != 0)
        releaseCall(handles.call);
    if (handles.line == 0)
        return;
    closeLine(handles.line);
    log("Line Closed.\n");
}

} // namespace

void hangUp(const Use& use) {
    TelephonyDevice& device = use.device();
    HangupTurn turn(device);
    if (!turn)
        return awaitHangup(use);
    if (!use.current())
        return;
    log("Stopping Call in progress - HangupCall Device: %d hCall: %x Line: %x", use.index(),
        device.callHandle.load(), device.lineHandle.load());
    if (uint32_t call = device.callHandle; call != 0 && !endCall(use, call))
        return;
    if (uint32_t line = lineOf(use); line != 0)
        endLine(line);
    use.change([&] { device.connected = 0; });
    log("Call stopped");
}

void releaseWhatIsLeft(const Use& use) {
    release({.call = callOf(use), .line = lineOf(use)});
}

void releaseAll() {
    for (TelephonyDevice& device : allDevices())
        release(endUse(device));
}

void disconnect(TelephonyDevice& device) {
    device.connectResultWanted = 0;
    clock::sleep(lastWords);
    Handles ended = endUse(device);
    wakeWaits(); // whoever works for the use that is over
    release(ended);
    if (HeldPort port(device.devicePort); port)
        closePort(*port);
}

} // namespace brisolt::telephony
