// Virtual ports and the functions that take the place of a port's own.
#include "api/border.h"
#include "brisolt/drivers.h"
#include "virtual/virtual_ports.h"

using namespace brisolt;

namespace {

template <auto Field, class Function> int32_t take(int32_t port, Function* function) noexcept {
    return onPort(port, -1, [=](Port& open) {
        open.record->*Field = function;
        open.events.wakeAll(); // waits learn of it
        return 1;
    });
}

} // namespace

BRISOLT_EXPORT int32_t ComVirtualOpen(int32_t port) {
    if (!validPort(port))
        return -1;
    try {
        return openVirtual(port);
    } catch (...) {
        return -20;
    }
}

BRISOLT_EXPORT int32_t ComVirtualClose(int32_t port) {
    return onPort(port, -1, closeVirtual);
}

#define SETTER(name, type, field)                              \
    BRISOLT_EXPORT int32_t name(int32_t port, type function) { \
        return take<&PortRecord::field>(port, function);       \
    }

SETTER(ComSetComBreakFunc, ComPortFunc, breakFunc)
SETTER(ComSetComCarrierFunc, ComPortFunc, carrierFunc)
SETTER(ComSetComDTRFunc, ComPortFunc, dtrFunc)
SETTER(ComSetComFlushFunc, ComPortFunc, flushFunc)
SETTER(ComSetComFlushOutBufFunc, ComPortFunc, flushOutBufFunc)
SETTER(ComSetComReadFunc, ComReadFunc, readFunc)
SETTER(ComSetComRingFunc, ComPortFunc, ringFunc)
SETTER(ComSetComSetBaudFunc, ComPortValueFunc, setBaudFunc)
SETTER(ComSetComSetParmsFunc, ComSetParmsFunc, setParmsFunc)
SETTER(ComSetComSetFlowFunc, ComPortValueFunc, setFlowFunc)
SETTER(ComSetComStatusFunc, ComPortFunc, statusFunc)
SETTER(ComSetComOutBufStatusFunc, ComPortFunc, outBufStatusFunc)
SETTER(ComSetComWriteFunc, ComWriteFunc, writeFunc)
SETTER(ComSetComGetBreakStatusFunc, ComPortFunc, getBreakStatusFunc)
SETTER(ComSetComGetCTSStatusFunc, ComPortFunc, getCtsStatusFunc)
SETTER(ComSetComGetDSRStatusFunc, ComPortFunc, getDsrStatusFunc)
SETTER(ComSetComSetDTRFunc, ComPortFunc, setDtrFunc)
SETTER(ComSetComClearDTRFunc, ComPortFunc, clearDtrFunc)
SETTER(ComSetComSetRTSFunc, ComPortFunc, setRtsFunc)
SETTER(ComSetComClearRTSFunc, ComPortFunc, clearRtsFunc)
SETTER(ComSetComUpdateStatusFunc, ComPortFunc, updateStatusFunc)

#undef SETTER
