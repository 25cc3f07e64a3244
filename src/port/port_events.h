// Who waits on a port, and the call that wakes them all: bytes came, somebody cancelled, the port closed.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/mutex.h"
#include "platform/wake.h"

namespace brisolt {

class PortEvents {
public:
    /// Changes with every wakeAll. A waiter notes it before it looks at what it waits for.
    uint32_t count() const noexcept { return count_.load(); }
    void wakeAll() noexcept;

    /// A thread's place among the waiters, for the length of a scope.
    class Waiter {
    public:
        Waiter(PortEvents& events, Wake& wake) noexcept;
        ~Waiter();
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

    private:
        friend class PortEvents;
        PortEvents& events_;
        Wake& wake_;
        Waiter* next_ = nullptr;
        Waiter** link_ = nullptr;
    };

private:
    std::atomic<uint32_t> count_{0};
    std::atomic<int32_t> waiting_{0};
    Mutex mutex_;
    Waiter* first_ GUARDED_BY(mutex_) = nullptr;
};

} // namespace brisolt
