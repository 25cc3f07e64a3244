#include "virtual/virtual_ports.h"

#include "platform/clock.h"
#include "port/blocks.h"
#include "port/log_file.h"
#include "port/open_close.h"
#include "port/port_table.h"
#include "port/trace.h"

namespace brisolt {

namespace {

constexpr int32_t namedRingSize = 16384; ///< what the parameters of a virtual port tell; it has no rings
constexpr uint32_t leaveTime = 500;      ///< milliseconds, for everybody who is still inside the port

void setVirtualDefaults(PortRecord& record, int32_t number) noexcept {
    record.portNumber = number;
    record.openTick = clock::ticks();
    record.threadStartTick = record.openTick.load();
    record.yield = 1;
    record.rxBufSize = namedRingSize;
    record.txBufSize = namedRingSize;
}

} // namespace

int32_t openVirtual(int32_t number) {
    if (!table::claim(number))
        return number; // open already, or just being opened
    Port* port = table::make(number);
    int32_t failure = port == nullptr ? -20 : blocks::allocateRecords(*port);
    if (failure != 0) {
        if (port != nullptr)
            table::letGo(*port);
        table::unclaim(number);
        return failure;
    }
    setVirtualDefaults(*port->record, number);
    port->threadDone = 1; // there is none to wait for
    port->open = 1;
    table::publish(*port);
    return number;
}

namespace {

int32_t close(Port& port, uint32_t pause) {
    if (port.hasDevice() || port.closing.exchange(1) != 0)
        return -1;
    port.events.wakeAll(); // whoever waits on the port ends here
    logs::entry(port, logs::Log::protocol, "Closing Virtual Port: %d", port.number.load());
    trace(port, "ComClose Called");
    clock::sleep(pause);
    turnOff(port);
    table::letGo(port); // the table's hold; the caller's own goes after this
    return 1;
}

} // namespace

int32_t closeVirtual(Port& port) {
    return close(port, leaveTime);
}

int32_t closeVirtualAtOnce(Port& port) {
    return close(port, 0);
}

} // namespace brisolt
