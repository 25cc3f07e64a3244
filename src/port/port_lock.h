// The lock of a port: re-entrant within a thread, and first come first served. The order matters: a caller
// that reads in a loop would otherwise keep the I/O thread from its turn for ever.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/mutex.h"
#include "platform/parking.h"

namespace brisolt {

class IS_A_LOCK PortLock {
public:
    void lock() noexcept TAKES_LOCK() LOCKS_UNCHECKED {
        const void* me = &thisThread;
        if (owner_.load(std::memory_order_relaxed) == me) {
            ++depth_;
            return;
        }
        uint32_t ticket = next_.fetch_add(1);
        if (serving_.load() != ticket)
            awaitTurn(ticket);
        owner_.store(me, std::memory_order_relaxed);
        depth_ = 1;
    }
    /// Takes it when it is free, or comes free in the time that a sleep would cost.
    bool try_lock() noexcept TRIES_LOCK(true) LOCKS_UNCHECKED {
        for (int32_t i = 0; i < looks; ++i)
            if (takeFree())
                return true;
        return false;
    }
    void unlock() noexcept GIVES_LOCK() LOCKS_UNCHECKED {
        if (--depth_ > 0)
            return;
        owner_.store(nullptr, std::memory_order_relaxed);
        uint32_t now = serving_.load(std::memory_order_relaxed) + 1;
        serving_.store(now); // sequentially consistent: a ticket drawn before this is seen below
        if (next_.load() != now)
            parking::unparkAll(serving_);
    }
    bool heldByMe() const noexcept { return owner_.load(std::memory_order_relaxed) == &thisThread; }

private:
    /// Most holders are gone again within the time that a sleep would cost.
    static constexpr int32_t looks = 40;

    bool takeFree() noexcept {
        const void* me = &thisThread;
        if (owner_.load(std::memory_order_relaxed) == me) {
            ++depth_;
            return true;
        }
        uint32_t ticket = serving_.load();
        if (!next_.compare_exchange_strong(ticket, ticket + 1)) // nobody has it, nobody waits for it
            return false;
        owner_.store(me, std::memory_order_relaxed);
        depth_ = 1;
        return true;
    }
    void awaitTurn(uint32_t ticket) noexcept;
    // Initial-exec: found without a call into the dynamic loader, on every read and write.
    static thread_local char thisThread __attribute__((tls_model("initial-exec")));
    std::atomic<uint32_t> next_{0};
    std::atomic<uint32_t> serving_{0};
    std::atomic<const void*> owner_{nullptr};
    int32_t depth_ = 0;
};

} // namespace brisolt
