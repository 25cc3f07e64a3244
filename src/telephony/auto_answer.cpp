#include "telephony/auto_answer.h"

#include <algorithm>

#include "telephony/context.h"
#include "telephony/hang_up.h"
#include "telephony/line_set_up.h"
#include "telephony/telephony_device.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

int32_t armAutoAnswer(const char* deviceName, int32_t rings) {
    if (!initialised())
        return -6;
    if (deviceCount() == 0)
        return -2;
    TelephonyDevice* device = findDevice(deviceName);
    if (device == nullptr)
        return -3;
    log("TAPI Device: %s DeviceID: %d port: %d", deviceName, indexOf(*device), device->devicePort.load());
    std::optional<Use> use = begin(*device, UseKind::autoAnswer);
    if (!use)
        return -1;
    device->ringsDesired = static_cast<uint32_t>(std::max(rings, 1));
    if (verifyUsableLine(*device, Purpose::answeringCalls) != 0) {
        giveUp(*use);
        return -4;
    }
    if (!use->current())
        return fail::lineOpen;
    use->change([&] { device->failCode = 0; });
    try {
        setUpLine(*use, Purpose::answeringCalls);
    } catch (...) { // no memory to wait with
        use->fail(fail::lineOpen);
    }
    int32_t code = fail::lineOpen; // of a line that a disconnect has taken away meanwhile
    use->change([&] {
        bool open = device->lineHandle != 0;
        if (open || device->failCode != 0)
            code = device->failCode;
        if (open && !namesLineFault(code))
            code = 0; // a call that came at once may have left a code of its own
    });
    if (code == 0)
        return 1;
    releaseWhatIsLeft(*use);
    giveUp(*use);
    return code;
}

} // namespace brisolt::telephony
