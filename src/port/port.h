// An open port: one counted object with all its blocks. An operation takes a hold on it (HeldPort), works
// on it and lets go; the close takes it out of the table, and the last holder frees the blocks and the
// device. So no operation ever meets freed memory or somebody else's descriptor, whoever closes or reopens
// the number in the middle of it.
//
// Lock order: portLock, then sendLock, then the small mutexes (each a leaf).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "device/device.h"
#include "platform/message.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "platform/wake.h"
#include "port/port_counters.h"
#include "port/port_events.h"
#include "port/port_lock.h"
#include "port/record.h"
#include "port/rings.h"
#include "port/tracked_memory.h"
#include "port/watch.h"
#include "port/writer_queue.h"

namespace brisolt {

struct TextTransfer;

/// How far the start of the I/O thread has come.
enum class ThreadStart : uint32_t {
    none,
    up,
    noMemory, ///< it has ended at once: what it needs of its own could not be had
};

struct Port {
    std::atomic<uint32_t> holds{0}; ///< 0: nobody's; only the table may touch the rest then
    Port* nextFree = nullptr;

    std::atomic<int32_t> number{0};
    std::atomic<int32_t> open{0};               ///< exactly 1 while the port is open
    std::atomic<int32_t> closing{0};            ///< 1 from the start of a close: there is one close a life
    std::atomic<int32_t> closeCallersHandle{0}; ///< the adopted handle goes with the device
    PortRecord* record = nullptr;
    PortWorkArea* workArea = nullptr;
    ReceiveRing rx;
    TransmitRing tx;
    TrackedBlocks orphans; ///< what the close took out of the number's pool; goes with the blocks

    PortLock portLock;
    PortLock sendLock;   ///< the transmit ring and the device's output, whose turn it is included
    WriterQueue writers; ///< whose turn it is; under sendLock but for a look whether there is any
    Device device;
    PortEvents events;
    PortCounters counters;
    std::atomic<int32_t> deviceState{COM_HOST_DEVICE_THERE}; ///< as it was seen last

    std::atomic<int32_t> threadRun{0};
    std::atomic<int32_t> threadDone{0};
    std::atomic<uint32_t> threadStart{0}; ///< a ThreadStart; a word, so that the opener can sleep on it
    std::atomic<int32_t> rxStalled{0};    ///< it leaves the device alone until a reader makes room
    std::shared_ptr<Wake> threadWake;     ///< set before the thread is announced; never changed afterwards
    std::shared_ptr<message::Place> threadMessages; ///< its own queue's; null: it makes one itself
    thread::Task threadTask;
    DirectionWatch receiving;             ///< for bytes that come
    DirectionWatch sending;               ///< for room for what a lossless port has queued
    std::atomic<int32_t> halfDuplex{0};   ///< bytes are sent by the thread alone, RTS raised meanwhile
    std::atomic<int32_t> byDescriptor{0}; ///< the program watches the device: nobody takes bytes unasked
    std::atomic<uint64_t> received{0};    ///< bytes from the device, since the open
    std::atomic<uint64_t> sent{0};        ///< bytes that it took
    std::atomic<int32_t> staged{0};       ///< bytes that have left the ring and are about to be written
    std::atomic<uint32_t> writeTurn{0};   ///< odd while a block is on its way to the line; under portLock
    std::atomic<int32_t> writeRefused{0}; ///< the device has failed to write; no byte was taken since
    std::atomic<int32_t> sendingFull{0};  ///< the device took less than offered; no room was seen since

    std::atomic<uint32_t> answerDue{0}; ///< the thread that has written last; 0: bytes have come since
    std::atomic<uint32_t> watchedBy{0}; ///< the lookout's thread that it is posted to; 0: to none
    std::atomic<int32_t> deviceGone{0}; ///< the lookout sent it back for that
    std::atomic<int32_t> untold{0};     ///< a caller took bytes that the thread has yet to notify somebody of

    /// How often a cancel was given: for a long call in the middle of which others may clear the flag.
    std::atomic<uint32_t> cancels{0};
    std::atomic<int32_t> lossless{0};
    std::atomic<int32_t> traceOn{0};     ///< the trace file has a name
    Mutex logMutex;                      ///< the log file names of the work area
    Mutex lineMutex;                     ///< lineState and deviceName of the record
    Mutex showMutex;                     ///< show of the work area
    Mutex captureMutex;                  ///< the capture of record and work area
    Mutex filesMutex;                    ///< the file-string list and the state of the write check
    std::atomic<uint32_t> fileWriter{0}; ///< the thread that uses the buffered writer

    /// The transfer that goes on the port step by step, if there is one.
    std::shared_ptr<TextTransfer> transfer GUARDED_BY(portLock);

    bool isOpen() const noexcept { return open.load(std::memory_order_acquire) == 1; }
    /// For waits: they end when a close begins, not when it has come to clearing `open`.
    bool ending() const noexcept { return closing.load(std::memory_order_acquire) != 0 || !isOpen(); }
    bool threaded() const noexcept { return record->ioMode == ioThreaded; }
    bool hasDevice() const noexcept { return device.present(); }
    ComHostLineState lineStateCopy() noexcept {
        MutexLock guard(lineMutex);
        return record->lineState;
    }
    void setLineStateCopy(const ComHostLineState& state) noexcept {
        MutexLock guard(lineMutex);
        record->lineState = state;
    }
    void wakeThread() noexcept {
        if (threadWake)
            threadWake->wake();
    }
};

} // namespace brisolt
