#include "port/port_counters.h"

#include "platform/message.h"
#include "platform/mutex.h"
#include "port/port.h"

namespace brisolt {

namespace {

using Counter = uint32_t ComHostCounters::*;

struct Row {
    uint32_t event;
    Counter counter;
};
constexpr Row rows[] = {
    {COM_HOST_EVENT_CTS, &ComHostCounters::cts},         {COM_HOST_EVENT_DSR, &ComHostCounters::dsr},
    {COM_HOST_EVENT_CARRIER, &ComHostCounters::carrier}, {COM_HOST_EVENT_RING, &ComHostCounters::ring},
    {COM_HOST_EVENT_BREAK, &ComHostCounters::breaks},    {COM_HOST_EVENT_ERROR, &ComHostCounters::framing},
    {COM_HOST_EVENT_ERROR, &ComHostCounters::parity},    {COM_HOST_EVENT_ERROR, &ComHostCounters::overrun},
    {COM_HOST_EVENT_ERROR, &ComHostCounters::overflow},  {COM_HOST_EVENT_GONE, &ComHostCounters::gone},
    {COM_HOST_EVENT_BACK, &ComHostCounters::back},
};

constexpr uint32_t absences = COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK;

struct ErrorRow {
    uint32_t error;
    Counter counter;
};
constexpr ErrorRow errorRows[] = {
    {COM_HOST_ERROR_BREAK, &ComHostCounters::breaks},
    {COM_HOST_ERROR_FRAMING, &ComHostCounters::framing},
    {COM_HOST_ERROR_PARITY, &ComHostCounters::parity},
    {COM_HOST_ERROR_OVERRUN, &ComHostCounters::overrun},
    {COM_HOST_ERROR_RX_OVERFLOW, &ComHostCounters::overflow},
};

void deviceChanged(void* port) {
    Port& changed = *static_cast<Port*>(port);
    changed.counters.look(changed);
}

} // namespace

uint32_t PortCounters::differing(const ComHostCounters& a, const ComHostCounters& b,
                                 uint32_t events) noexcept {
    uint32_t differ = 0;
    for (const Row& row : rows)
        if ((events & row.event) != 0 && a.*row.counter != b.*row.counter)
            differ |= row.event;
    return differ;
}

void PortCounters::copy(ComHostCounters& to, const ComHostCounters& from, uint32_t events) noexcept {
    for (const Row& row : rows)
        if ((events & row.event) != 0)
            to.*row.counter = from.*row.counter;
}

// Unsigned differences: a device that wraps a counter is no harm.
ComHostCounters PortCounters::counted(const Port& port, const ComHostCounters& device,
                                      int32_t counts) const noexcept {
    ComHostCounters counted = own_;
    for (const Row& row : rows)
        if (counts > 0 || (counts == 0 && (row.event & absences) != 0))
            counted.*row.counter = device.*row.counter - base_.*row.counter;
    counted.size = sizeof counted;
    counted.received = port.received.load(std::memory_order_relaxed);
    counted.sent = port.sent.load(std::memory_order_relaxed);
    return counted;
}

// A device is asked without the mutex: it may have news of its own to tell on this very thread, of this port or of
// the one at its far end.
void PortCounters::begin(Port& port) noexcept {
    ComHostCounters device{};
    const int32_t counts = port.device.counters(device);
    {
        MutexLock guard(watchMutex_);
        asked_ = toldByDevice_ = 0;
        untold_ = 0;
        waits_ = 0;
        hasTarget_ = false;
    }
    MutexLock guard(mutex_);
    base_ = own_ = told_ = {};
    if (counts >= 0)
        base_ = device;
    state_ = COM_HOST_DEVICE_THERE;
    events_ = 0;
    window_ = 0;
    thread_ = 0;
}

ComHostCounters PortCounters::now(Port& port) noexcept {
    ComHostCounters device{};
    const int32_t counts = port.device.counters(device);
    MutexLock guard(mutex_);
    return counted(port, device, counts);
}

// A look that was overtaken by a later one tells nothing again.
uint32_t PortCounters::moveOn(const ComHostCounters& latest) noexcept {
    uint32_t moved = 0;
    for (const Row& row : rows) {
        if (static_cast<int32_t>(latest.*row.counter - told_.*row.counter) <= 0)
            continue;
        told_.*row.counter = latest.*row.counter;
        moved |= row.event;
    }
    return moved;
}

void PortCounters::look(Port& port) noexcept {
    {
        ComHostCounters device{};
        const int32_t counts = port.device.counters(device);
        MutexLock guard(mutex_);
        const uint32_t moved = moveOn(counted(port, device, counts));
        if (moved == 0)
            return;
        // Under the mutex: who has ended it, or has it told elsewhere, gets nothing afterwards.
        uint32_t tell = moved & events_;
        auto number = static_cast<intptr_t>(port.number.load());
        if (tell != 0 && window_ != 0)
            message::postToWindow(window_, COM_HOST_MESSAGE_EVENT, tell, number);
        else if (tell != 0)
            message::postToThread(thread_, COM_HOST_MESSAGE_EVENT, tell, number);
    }
    port.events.wakeAll();
}

void PortCounters::noteErrors(Port& port, uint32_t errors) noexcept {
    {
        MutexLock guard(mutex_);
        for (const ErrorRow& row : errorRows)
            if ((errors & row.error) != 0)
                own_.*row.counter += 1;
    }
    look(port);
}

void PortCounters::noteState(Port& port) noexcept {
    if (untold_.load(std::memory_order_relaxed) != 0)
        look(port);
    int32_t state = port.device.state();
    if (port.deviceState.load(std::memory_order_relaxed) == state ||
        port.deviceState.exchange(state) == state)
        return;
    {
        MutexLock guard(mutex_);
        bool wasThere = state_ == COM_HOST_DEVICE_THERE;
        bool isThere = state == COM_HOST_DEVICE_THERE;
        own_.gone += wasThere && !isThere ? 1 : 0;
        own_.back += !wasThere && isThere ? 1 : 0;
        state_ = state;
    }
    look(port);
    port.events.wakeAll(); // also when it is only no longer looked for
}

void PortCounters::beginWait() noexcept {
    MutexLock guard(watchMutex_);
    ++waits_;
}

void PortCounters::endWait() noexcept {
    MutexLock guard(watchMutex_);
    if (--waits_ == 0 && !hasTarget_)
        untold_ = 0; // nobody looks for them any more; who asks again has them looked for again
}

uint32_t PortCounters::ask(Port& port, uint32_t events) noexcept {
    MutexLock guard(watchMutex_);
    if ((asked_ | events) != asked_) {
        asked_ |= events;
        toldByDevice_ = port.device.watch(asked_, deviceChanged, &port);
    }
    ComHostCounters device{};
    const int32_t counts = port.device.counters(device);
    untold_ = counts > 0 ? asked_ & ~(toldByDevice_ | absences) : 0;
    if (counts > 0)
        return events;
    // A driver of the first record tells errors by its status alone; the built-in ones count what they can tell.
    bool tellsErrors = port.device.tellsErrorsByStatus();
    constexpr uint32_t errors = COM_HOST_EVENT_BREAK | COM_HOST_EVENT_ERROR;
    return events & (tellsErrors ? absences | errors : absences);
}

void PortCounters::setTarget(Port& port, uint32_t events, int32_t window, uint32_t thread) noexcept {
    {
        MutexLock guard(watchMutex_);
        hasTarget_ = true;
    }
    ask(port, events);
    look(port); // what was before is told to whom it was for
    MutexLock guard(mutex_);
    events_ = events;
    window_ = window;
    thread_ = thread;
}

void PortCounters::endTarget(Port& port) noexcept {
    {
        MutexLock guard(mutex_);
        events_ = 0;
        window_ = 0;
        thread_ = 0;
    }
    MutexLock guard(watchMutex_);
    hasTarget_ = false;
    if (asked_ == 0 || waits_ != 0)
        return;
    port.device.watch(asked_ = 0, nullptr, nullptr);
    untold_ = 0;
}

} // namespace brisolt
