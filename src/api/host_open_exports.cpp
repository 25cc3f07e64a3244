// The exported functions that open by path and set a line and read it back.
#include "api/border.h"
#include "api/sized_records.h"
#include "brisolt_host.h"
#include "platform/error_text.h"
#include "port/open_close.h"
#include "stream/exchange.h"
#include "stream/line_exchange.h"
#include "virtual/virtual_ports.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComHostOpen(const char* path, int32_t baudRate, const char* framing) {
    constexpr int32_t noMemory = -20;
    const int32_t result = guarded(noMemory, [&] { return openPath(path, baudRate, framing); });
    if (result == noMemory)
        setErrorTextFrom({"cannot open ", path != nullptr ? path : "a device", ": no memory"});
    return result;
}

BRISOLT_EXPORT int32_t ComHostClose(int32_t port, int32_t milliseconds) {
    return onPort(port, -1, [milliseconds](Port& open) {
        bool left = exchange::leftAfter(open, milliseconds);
        int32_t closed = open.hasDevice() ? closePortAtOnce(open) : closeVirtualAtOnce(open);
        left = left || open.tx.count() > 0; // what another thread has written since then
        return closed == 1 && left ? 0 : closed;
    });
}

BRISOLT_EXPORT int32_t ComHostSetLine(int32_t port, int32_t baudRate, const char* framing, int32_t flow) {
    return onPort(port, -1, [&](Port& open) { return setLine(open, baudRate, framing, flow); });
}

BRISOLT_EXPORT int32_t ComHostGetLine(int32_t port, ComHostLineState* state) {
    if (!holdsAll(state))
        return -1;
    return onPort(port, -1, [state](Port& open) {
        ComHostLineState answer{};
        int32_t result = getLine(open, answer);
        if (result == 1)
            fill(*state, answer);
        return result;
    });
}
