#include "port/blocks.h"

#include "platform/memory.h"
#include "port/port.h"

namespace brisolt::blocks {

namespace {

template <class T> void releaseBlock(T*& block, std::size_t size) noexcept {
    if (block != nullptr)
        memory::release(block, size);
    block = nullptr;
}

} // namespace

int32_t allocateRecords(Port& port) noexcept {
    port.rx = {};
    port.tx = {};
    port.record = static_cast<PortRecord*>(memory::allocateSmall(sizeof(PortRecord)));
    if (port.record == nullptr)
        return -20;
    port.workArea = static_cast<PortWorkArea*>(memory::allocateZeroed(sizeof(PortWorkArea)));
    if (port.workArea == nullptr) {
        release(port);
        return -21;
    }
    port.rx.tail = &port.record->rxTail;
    port.rx.head = &port.record->rxHead;
    port.tx.tail = &port.record->txTail;
    port.tx.head = &port.record->txHead;
    return 0;
}

int32_t allocate(Port& port, uint32_t rxSize, uint32_t txSize) noexcept {
    if (int32_t failure = allocateRecords(port); failure != 0)
        return failure;
    // Positions are signed: a ring above their range cannot be had.
    auto storageOf = [](uint32_t size) {
        return size > INT32_MAX ? nullptr : static_cast<uint8_t*>(memory::allocateZeroed(size));
    };
    port.rx.storage = storageOf(rxSize);
    port.rx.size = static_cast<int32_t>(rxSize);
    if (port.rx.storage != nullptr)
        port.tx.storage = storageOf(txSize);
    port.tx.size = static_cast<int32_t>(txSize);
    if (port.tx.storage != nullptr)
        return 0;
    int32_t failure = port.rx.storage == nullptr ? -22 : -23;
    release(port);
    return failure;
}

void release(Port& port) noexcept {
    releaseBlock(port.rx.storage, static_cast<std::size_t>(port.rx.size));
    releaseBlock(port.tx.storage, static_cast<std::size_t>(port.tx.size));
    releaseBlock(port.workArea, sizeof(PortWorkArea));
    if (port.record != nullptr)
        releaseBlock(port.record->captureBuffer, static_cast<std::size_t>(port.record->captureSize));
    memory::releaseSmall(port.record);
    port.record = nullptr;
    port.rx = {};
    port.tx = {};
}

} // namespace brisolt::blocks
