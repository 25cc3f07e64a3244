#include "stream/event_wait.h"

#include "platform/signal_gate.h"
#include "port/waits.h"

namespace brisolt {

namespace {

class Wait {
public:
    explicit Wait(PortCounters& counters) noexcept : counters_(counters) { counters.beginWait(); }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;
    ~Wait() { counters_.endWait(); }

private:
    PortCounters& counters_;
};

} // namespace

int32_t waitForEvent(Port& port, uint32_t events, ComHostCounters& seen, int32_t milliseconds) {
    constexpr int32_t closed = -1, cancelledByUser = -3, cannotTell = -4, interrupted = -5;
    const Wait wait(port.counters);
    if (!port.hasDevice() || port.counters.ask(port, events) == 0)
        return cannotTell;
    uint32_t cancels = port.cancels.load();
    const SignalGate gate(port.device.sleepsItself());
    auto until = milliseconds < 0 ? clock::Deadline::never()
                                  : clock::Deadline::in(static_cast<uint32_t>(milliseconds));
    for (;;) {
        uint32_t count = port.events.count();
        ComHostCounters now = port.counters.now(port);
        if (uint32_t differ = PortCounters::differing(now, seen, events); differ != 0) {
            PortCounters::copy(seen, now, events);
            return static_cast<int32_t>(differ);
        }
        if (port.ending())
            return closed;
        if (port.cancels.load() != cancels)
            return cancelledByUser;
        if (until.passed())
            return 0;
        if (sleepOnPort(port, count, {.signals = true}, until).interrupted)
            return interrupted;
    }
}

} // namespace brisolt
