#include "platform/parking.h"

#include <climits>
#include <linux/futex.h>
#include <linux/time_types.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/posix/brake.h"

namespace brisolt::parking {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

// The time of the call is a `long`, whatever the compiler's time_t is: there it has been from the beginning, while
// older kernels of 32-bit hosts lack the call with 64 bits. Only hosts that came after that one have no other.
#ifdef SYS_futex
constexpr long futexCall = SYS_futex;
using FutexTime = __kernel_old_timespec;
#else
constexpr long futexCall = SYS_futex_time64;
using FutexTime = __kernel_timespec;
#endif

void park(const std::atomic<uint32_t>& word, uint32_t value, int32_t realMilliseconds) noexcept {
    FutexTime time{.tv_sec = realMilliseconds / 1000, .tv_nsec = (realMilliseconds % 1000) * 1'000'000L};
    long result = syscall(futexCall, &word, FUTEX_WAIT_PRIVATE, value, realMilliseconds < 0 ? nullptr : &time,
                          nullptr, 0);
    // The word had changed already, or the time is over: that is what a sleep may end for.
    if (result != 0 && errno != EAGAIN && errno != ETIMEDOUT)
        brakeUnlessInterrupted(realMilliseconds);
}

void unparkAll(const std::atomic<uint32_t>& word) noexcept {
    syscall(futexCall, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace brisolt::parking
