// Notifications on received data.
#include "script/notifications.h"

#include "api/border.h"
#include "brisolt/notifications.h"

using namespace brisolt;

namespace {

template <auto Field, class Target> int32_t any(int32_t port, Target target) noexcept {
    return onPort(port, -1, [=](Port& open) { return notifyAny<Target>(open, Field, target); });
}
template <auto Field, class Target> int32_t onChar(int32_t port, Target target, uint8_t character) noexcept {
    return onPort(port, -1, [=](Port& open) { return notifyOnChar<Target>(open, Field, target, character); });
}
template <auto Field, class Target>
int32_t onString(int32_t port, Target target, const char* string, ShortString tooShort) noexcept {
    return onPort(port, -1,
                  [=](Port& open) { return notifyOnString<Target>(open, Field, target, string, tooShort); });
}

} // namespace

BRISOLT_EXPORT int32_t ComSetNotifyMessageAnyChar(int32_t port, int32_t window) {
    return any<&PortRecord::anyCharWindow>(port, window);
}
BRISOLT_EXPORT int32_t ComSetNotifyThreadMessageAnyChar(int32_t port, uint32_t thread) {
    return any<&PortRecord::anyCharThread>(port, thread);
}
BRISOLT_EXPORT int32_t ComSetNotifyMessageOnAnyCharCallBackFunc(int32_t port, ComPortFunc function) {
    return any<&PortRecord::anyCharCallback>(port, function);
}

BRISOLT_EXPORT int32_t ComSetNotifyMessageOnChar(int32_t port, int32_t window, uint8_t character) {
    return onChar<&PortRecord::onCharWindow>(port, window, character);
}
BRISOLT_EXPORT int32_t ComSetNotifyThreadMessageOnChar(int32_t port, uint32_t thread, uint8_t character) {
    return onChar<&PortRecord::onCharThread>(port, thread, character);
}
BRISOLT_EXPORT int32_t ComSetNotifyMessageOnCharCallBackFunc(int32_t port, ComPortFunc function,
                                                             uint8_t character) {
    return onChar<&PortRecord::onCharCallback>(port, function, character);
}

// An empty string switches the window off, and that is no failure.
BRISOLT_EXPORT int32_t ComSetNotifyMessageOnString(int32_t port, int32_t window, const char* string) {
    bool empty = string == nullptr || *string == 0;
    return onString<&PortRecord::onStringWindow>(port, empty ? 0 : window, string, {1, 1});
}
BRISOLT_EXPORT int32_t ComSetNotifyThreadMessageOnString(int32_t port, uint32_t thread, const char* string) {
    return onString<&PortRecord::onStringThread>(port, thread, string, {1, -2});
}
BRISOLT_EXPORT int32_t ComSetNotifyMessageOnStringCallBackFunc(int32_t port, ComPortFunc function,
                                                               const char* string) {
    return onString<&PortRecord::onStringCallback>(port, function, string, {2, -2});
}

BRISOLT_EXPORT int32_t ComReplace_Incoming_Char(int32_t port, int32_t enable, uint8_t from, uint8_t to) {
    return onPort(port, -1, [=](Port& open) { return setReplacement(open, enable, from, to); });
}
