#include "telephony/connect_thread.h"

#include <memory>
#include <new>
#include <utility>

#include "platform/thread.h"
#include "port/port_defaults.h"
#include "telephony/context.h"
#include "telephony/telephony_log.h"
#include "telephony/usable_line.h"

namespace brisolt::telephony {

namespace {

constexpr int32_t notStarted = -30;

/// What the thread needs, a copy of its own: the number in full, which the entry may not hold.
struct Start {
    Use use;
    DialString toDial;
};

void storeRequest(const Use& use, const DialString& toDial) {
    TelephonyDevice& device = use.device();
    const char mode[] = {toDial.text[0], '\0'};
    use.change([&] {
        setText(device.dialMode, int32_t{sizeof device.dialMode}, mode);
        setText(device.phoneNumber, int32_t{sizeof device.phoneNumber}, toDial.number());
    });
}

/// ComTAPI_Connect for a device that is taken already. Nothing said to it since the start is lost.
int32_t connectStarted(const Start& start) {
    char name[lineNameSize];
    copyLineName(start.use.device(), name);
    CallRequest request{.deviceName = name, .phoneNumber = start.toDial.number(), .dialMode = nullptr};
    TelephonyDevice* device = nullptr;
    if (int32_t refusal = lookUp(request, device); refusal != 0) {
        giveUp(start.use);
        return refusal;
    }
    return takeOver(start.use) ? placeCall(start.use, start.toDial) : fail::waiting;
}

/// Unless the result is wanted no more it becomes the device's.
void tell(const Use& use, int32_t result) {
    TelephonyDevice& device = use.device();
    bool wanted = false;
    use.change([&] {
        device.threadUnderWay = 0;
        wanted = device.connectResultWanted != 0;
        if (wanted)
            device.connectStatus = result >= 0 ? connectStatus::connected : result;
    });
    if (wanted && result >= 0)
        log("TAPI Thread - CONNECTED");
    else if (wanted)
        log("TAPI Thread - Failed: %d", result);
}

void threadMain(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    thread::setPriority(thread::currentId(), thread::Priority::aboveNormal);
    start->use.change([&] { start->use.device().threadHandle = thread::currentId(); });
    log("TAPI Thread - Calling for Connect");
    int32_t result = fail::waiting;
    try {
        result = connectStarted(*start);
    } catch (...) { // no memory to close the port with that was left of the call
        giveUp(start->use);
    }
    tell(start->use, result);
}

/// There will be no thread.
void giveUpStart(const Use& use) noexcept {
    use.change([&] { use.device().threadUnderWay = 0; });
}

int32_t startThread(std::unique_ptr<Start> start) {
    Use use = start->use;
    TelephonyDevice& device = use.device();
    int32_t before = device.connectStatus;
    use.change([&] { device.connectStatus = connectStatus::underWay; }); // before the thread may tell more
    if (!thread::start(threadMain, start.get(), "brisolt-connect")) {
        use.change([&] { device.connectStatus = before; });
        giveUpStart(use);
        return notStarted;
    }
    (void)start.release(); // the thread's
    return 1;
}

} // namespace

int32_t connectOnThread(const CallRequest& request) {
    TelephonyDevice* device = nullptr;
    DialString toDial;
    if (int32_t refusal = lookUpFree(request, device, toDial); refusal != 0)
        return refusal;
    std::unique_ptr<Start> start(new (std::nothrow) Start{Use(*device), toDial});
    if (start == nullptr)
        return notStarted;
    std::optional<Use> use = begin(*device, UseKind::startConnect);
    if (!use)
        return refuseInUse(*device);
    start->use = *use;
    storeRequest(*use, toDial);
    if (verifyUsableLine(*device, Purpose::placingCalls) != 0) {
        giveUpStart(*use);
        return refuseUnusable(*device);
    }
    use->change([&] { device->failCode = 0; });
    log("Starting TAPI Thread");
    return startThread(std::move(start));
}

void cancel(TelephonyDevice& device) {
    device.connectResultWanted = 0;
    device.cancelRequested = 1;
    wakeWaits();
}

} // namespace brisolt::telephony
