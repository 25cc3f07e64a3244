#include "port/blocks.h"

#include "platform/memory.h"
#include "port/port.h"

namespace brisolt::blocks {

namespace {

void tieRings(Port& port, uint32_t rxSize, uint32_t txSize) noexcept {
    port.rx.size = static_cast<int32_t>(rxSize);
    port.rx.tail = &port.record->rxTail;
    port.rx.head = &port.record->rxHead;
    port.tx.size = static_cast<int32_t>(txSize);
    port.tx.tail = &port.record->txTail;
    port.tx.head = &port.record->txHead;
}

template <class T> void releaseBlock(T*& block, std::size_t size) noexcept {
    if (block != nullptr)
        memory::release(block, size);
    block = nullptr;
}

} // namespace

int32_t allocate(Port& port, uint32_t rxSize, uint32_t txSize) noexcept {
    port.rx = {};
    port.tx = {};
    auto failed = [&port](int32_t code) {
        release(port);
        return code;
    };
    // Positions are signed: a ring above their range cannot be had.
    port.record = static_cast<PortRecord*>(memory::allocateZeroed(sizeof(PortRecord)));
    if (port.record == nullptr)
        return failed(-20);
    port.workArea = static_cast<PortWorkArea*>(memory::allocateZeroed(sizeof(PortWorkArea)));
    if (port.workArea == nullptr)
        return failed(-21);
    port.rx.storage = rxSize > INT32_MAX ? nullptr : static_cast<uint8_t*>(memory::allocateZeroed(rxSize));
    if (port.rx.storage == nullptr)
        return failed(-22);
    port.rx.size = static_cast<int32_t>(rxSize);
    port.tx.storage = txSize > INT32_MAX ? nullptr : static_cast<uint8_t*>(memory::allocateZeroed(txSize));
    if (port.tx.storage == nullptr)
        return failed(-23);
    tieRings(port, rxSize, txSize);
    return 0;
}

void release(Port& port) noexcept {
    releaseBlock(port.rx.storage, static_cast<std::size_t>(port.rx.size));
    releaseBlock(port.tx.storage, static_cast<std::size_t>(port.tx.size));
    releaseBlock(port.workArea, sizeof(PortWorkArea));
    releaseBlock(port.record, sizeof(PortRecord));
    port.rx = {};
    port.tx = {};
}

} // namespace brisolt::blocks
