#include "port/opening.h"

#include "brisolt/ports.h"
#include "platform/clock.h"
#include "platform/error_text.h"
#include "port/blocks.h"
#include "port/device_setup.h"
#include "port/flow.h"
#include "port/half_duplex.h"
#include "port/io_thread.h"
#include "port/port_table.h"

namespace brisolt {

Opening::Opening(int32_t number, uint32_t rxSize, uint32_t txSize) noexcept : number_(number) {
    if (!validPort(number_))
        code_ = -1;
    else if (!table::claim(number_))
        code_ = -2;
    else
        begin(rxSize, txSize);
}

Opening::~Opening() {
    if (port_ != nullptr) {
        port_->threadRun = 0;
        port_->open = 0;
        table::letGo(*port_);
    }
    if (claimed_)
        table::unclaim(number_);
}

void Opening::begin(uint32_t rxSize, uint32_t txSize) noexcept {
    claimed_ = true;
    Port* port = table::make(number_);
    port_ = port;
    code_ = port == nullptr ? -20 : blocks::allocate(*port, rxSize, txSize);
    if (code_ == 0)
        port->open = 1;
    else
        setErrorTextFrom({"cannot open a port: no memory"});
}

int32_t Opening::succeed() noexcept {
    table::publish(*port_);
    port_ = nullptr;
    claimed_ = false;
    return number_;
}

namespace {

/// No flow control, without touching lines that the path asks to be left alone or low.
void startFlow(Port& port) {
    const DeviceOptions& options = port.device.options();
    if (options.dtr == LineStart::raise && options.rts == LineStart::raise)
        setFlow(port, COM_FLOW_NONE);
    else
        setQuietFlow(port, COM_FLOW_NONE);
}

} // namespace

int32_t startPort(Port& port) {
    port.counters.begin(port);
    startLine(port);
    if (port.device.options().rs485.mode == Rs485Mode::rts)
        port.halfDuplex = rtsLowered; // before anybody may send
    port.threadRun = 1;
    port.threadDone = 0;
    if (port.threaded() && (port.threadWake == nullptr || !startIoThread(port))) {
        port.threadRun = 0;
        port.threadDone = 1;
        return -38;
    }
    port.record->threadStartTick = clock::ticks();
    setIoPriority(port, 6);
    startFlow(port);
    listenHalfDuplex(port);
    return 0;
}

} // namespace brisolt
