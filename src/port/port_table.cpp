#include "port/port_table.h"

#include <new>

#include "platform/forked.h"
#include "platform/mutex.h"
#include "port/blocks.h"

namespace brisolt::table {

Slot slots[lastPort + 1];

namespace {

Mutex freeMutex;
Port* freeHeaders GUARDED_BY(freeMutex) = nullptr;

Port* takeHeader() noexcept {
    {
        MutexLock guard(freeMutex);
        if (Port* port = freeHeaders) {
            freeHeaders = port->nextFree;
            return port;
        }
    }
    return new (std::nothrow) Port;
}

// What a hold tried on a stale header may look at (holds, number) stays as it is or is atomic; everything
// else is set here, before the first hold of the new life.
void reset(Port& port, int32_t number) noexcept {
    port.nextFree = nullptr;
    port.number.store(number);
    port.open = 0;
    port.closing = 0;
    port.closeCallersHandle = 0;
    port.threadRun = 0;
    port.threadDone = 0;
    port.threadStart = 0;
    port.rxStalled = 0;
    port.threadWake.reset();
    port.threadMessages.reset();
    port.receiving.reset();
    port.sending.reset();
    port.deviceState = COM_HOST_DEVICE_THERE;
    port.halfDuplex = 0;
    port.byDescriptor = 0;
    port.received = 0;
    port.sent = 0;
    port.staged = 0;
    port.writeTurn = 0;
    port.writeRefused = 0;
    port.sendingFull = 0;
    port.watchedBy = 0;
    port.deviceGone = 0;
    port.fileWriter = 0;
    port.untold = 0;
    port.lossless = 0;
    port.traceOn = 0;
}

void beginAnew() noexcept LOCKS_UNCHECKED {
    freeMutex.beginAnew();
    freeHeaders = nullptr;
    for (Slot& slot : slots) {
        slot.ofParent = slot.ofParent || slot.claimed != 0;
        slot.port = nullptr;
        slot.claimed = 0;
    }
}

} // namespace

bool claim(int32_t number) noexcept {
    forked::beginAnewInChild(beginAnew);
    int32_t free = 0;
    return slots[number].claimed.compare_exchange_strong(free, 1);
}

void unclaim(int32_t number) noexcept {
    slots[number].claimed = 0;
}

Port* make(int32_t number) noexcept {
    Port* port = takeHeader();
    if (port == nullptr)
        return nullptr;
    reset(*port, number);
    port->holds.store(1, std::memory_order_release);
    return port;
}

void publish(Port& port) noexcept {
    slots[port.number].port.store(&port, std::memory_order_release);
}

void withdraw(Port& port) noexcept {
    slots[port.number].port.store(nullptr, std::memory_order_release);
    unclaim(port.number);
}

/// The last hold is gone: nobody else can come to its lock.
void freePort(Port& port) noexcept LOCKS_UNCHECKED {
    port.device.watch(0, nullptr, nullptr);
    if (port.closeCallersHandle != 0)
        port.device.closeWithHandle();
    else
        port.device.close();
    port.transfer.reset();
    port.orphans.releaseAll();
    blocks::release(port);
    port.threadWake.reset();
    port.threadMessages.reset();
    MutexLock guard(freeMutex);
    port.nextFree = freeHeaders;
    freeHeaders = &port;
}

} // namespace brisolt::table
