// Line settings and status, and the scrambling of a link.
#include <cstring>

#include "api/border.h"
#include "brisolt/lines.h"
#include "port/scramble.h"
#include "stream/line_settings.h"
#include "stream/line_status.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComSetBaud(int32_t port, int32_t baudRate) {
    return onPort(port, -1, [=](Port& open) { return setBaud(open, baudRate); });
}

BRISOLT_EXPORT int32_t ComSetParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    return onPort(port, -1, [=](Port& open) { return setParms(open, parity, dataBits, stopBits); });
}

BRISOLT_EXPORT int32_t ComSetPar(int32_t port, int32_t parity) {
    return onPort(port, -1, [=](Port& open) {
        return setParms(open, parity, open.record->dataBits, open.record->stopCode);
    });
}

BRISOLT_EXPORT int32_t ComSetBits(int32_t port, int32_t dataBits) {
    return onPort(port, -1, [=](Port& open) {
        return setParms(open, open.record->parityCode, dataBits, open.record->stopCode);
    });
}

BRISOLT_EXPORT int32_t ComSetStop(int32_t port, int32_t stopBits) {
    return onPort(port, -1, [=](Port& open) {
        return setParms(open, open.record->parityCode, open.record->dataBits, stopBits) >= 0 ? 1 : -1;
    });
}

BRISOLT_EXPORT int32_t ComBreak(int32_t port) {
    return onPort(port, -1, sendBreak);
}

BRISOLT_EXPORT int32_t ComSetBreak_ON(int32_t port) {
    return onPort(port, -1, [](Port& open) { return setBreak(open, true); });
}

BRISOLT_EXPORT int32_t ComSetBreak_OFF(int32_t port) {
    return onPort(port, -1, [](Port& open) { return setBreak(open, false); });
}

BRISOLT_EXPORT int32_t ComDTR(int32_t port) {
    return onPort(port, -1, pulseDtr);
}

BRISOLT_EXPORT int32_t ComCarrier(int32_t port) {
    return onPort(port, -1, carrier);
}

BRISOLT_EXPORT int32_t ComCarrierTx(int32_t port) {
    return onPort(port, -1, [](Port& open) { return carrierLatch(open); });
}

BRISOLT_EXPORT int32_t ComSetCarrier(int32_t port, int32_t on) {
    return onPort(port, -1, [=](Port& open) { return setCarrierLatch(open, on != 0); });
}

BRISOLT_EXPORT int32_t ComGetCTSStatus(int32_t port) {
    return onPort(port, -1, clearToSend);
}

BRISOLT_EXPORT int32_t ComGetDSRStatus(int32_t port) {
    return onPort(port, -1, dataSetReady);
}

BRISOLT_EXPORT int32_t ComGetBreakStatus(int32_t port) {
    return onPort(port, -1, takeBreakSeen);
}

BRISOLT_EXPORT int32_t ComGetVersionNumber(char* buffer) {
    if (buffer == nullptr)
        return -1;
    std::memcpy(buffer, "5.30", sizeof "5.30");
    return 1;
}

BRISOLT_EXPORT int32_t ComSetSecurity(int32_t port, int32_t on) {
    return onPort(port, -1, [=](Port& open) {
        open.record->scrambleOn = on == 1 ? 1 : 0;
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComSetCode(int32_t port, const char* code) {
    if (code == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        open.record->scrambleKey = scrambleKeyOf(code);
        return 1;
    });
}
