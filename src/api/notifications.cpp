// Notifications on received data.
#include "script/notifications.h"

#include "api/border.h"
#include "api/brisolt/notifications.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComSetNotifyMessageAnyChar(int32_t port, int32_t window) {
    return onPort(port, -1, [=](Port& open) { return notifyWindow(open, window); });
}

BRISOLT_EXPORT int32_t ComSetNotifyThreadMessageAnyChar(int32_t port, uint32_t thread) {
    return onPort(port, -1, [=](Port& open) { return notifyThread(open, thread); });
}

BRISOLT_EXPORT int32_t ComSetNotifyMessageOnAnyCharCallBackFunc(int32_t port, ComPortFunc function) {
    return onPort(port, -1, [=](Port& open) { return notifyFunction(open, function); });
}
