#include "platform/parking.h"

#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/posix/brake.h"

namespace brisolt::parking {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

// On a 32-bit host the first of the two calls takes a time of 32 bits, whatever the compiler's is.
#ifdef SYS_futex_time64
constexpr long waitCall = sizeof(time_t) > sizeof(long) ? SYS_futex_time64 : SYS_futex;
#else
constexpr long waitCall = SYS_futex;
#endif

void park(const std::atomic<uint32_t>& word, uint32_t value, int32_t realMilliseconds) noexcept {
    timespec time{.tv_sec = realMilliseconds / 1000, .tv_nsec = (realMilliseconds % 1000) * 1'000'000L};
    long result = syscall(waitCall, &word, FUTEX_WAIT_PRIVATE, value, realMilliseconds < 0 ? nullptr : &time,
                          nullptr, 0);
    // The word had changed already, or the time is over: that is what a sleep may end for.
    if (result != 0 && errno != EAGAIN && errno != ETIMEDOUT)
        brakeUnlessInterrupted(realMilliseconds);
}

void unparkAll(const std::atomic<uint32_t>& word) noexcept {
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace brisolt::parking
