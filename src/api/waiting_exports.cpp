// Waiting, escape and cancel.
#include "api/border.h"
#include "brisolt/waits.h"
#include "port/waits.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComEscape(int32_t port, int32_t character) {
    return onPort(port, -1, [=](Port& open) { return checkEscape(open, character); });
}

BRISOLT_EXPORT int32_t ComServiceMessagePump(void) {
    try {
        return pumpMessages();
    } catch (...) {
        return 0;
    }
}

BRISOLT_EXPORT int32_t ComSleep(int32_t port, int32_t seconds) {
    return onPort(port, -1, [=](Port& open) { return sleepMilliseconds(open, int64_t{seconds} * 1000); });
}

BRISOLT_EXPORT int32_t ComSleepMS(int32_t port, int32_t milliseconds) {
    return onPort(port, -1, [=](Port& open) { return sleepMilliseconds(open, milliseconds); });
}

BRISOLT_EXPORT int32_t ComCancel(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        cancel(open);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComPortSetEscapeChar(int32_t port, int32_t character) {
    return onPort(port, -1, [=](Port& open) {
        open.record->escapeChar = static_cast<uint8_t>(character & 0xFF);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComPortGetEscapeChar(int32_t port) {
    return onPort(port, 0, [](Port& open) { return int32_t{open.record->escapeChar}; });
}

BRISOLT_EXPORT int32_t ComSetYield(int32_t port, int32_t value) {
    return onPort(port, -1, [=](Port& open) {
        open.record->yield = value;
        open.events.wakeAll(); // waits look at it again
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComTiming(void) {
    return 1;
}

BRISOLT_EXPORT void _chkerror(int32_t) {}
