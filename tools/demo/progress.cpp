#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <unistd.h>

void Progress::at(std::size_t done) {
    constexpr auto longest = std::chrono::seconds(10);
    if (done == done_) {
        if (Clock::now() - lastStep_ > longest)
            throw std::runtime_error(what_ + ": nothing moves any more");
        return;
    }
    done_ = done;
    lastStep_ = Clock::now();
    if (done >= total_ || isatty(STDOUT_FILENO) != 0)
        print(done >= total_ ? '\n' : '\r');
}

void Progress::print(char end) const {
    const std::chrono::duration<double> seconds = Clock::now() - start_;
    const double kilobytes = static_cast<double>(done_) / 1000;
    std::printf("  %-30s %7zu of %zu bytes, %.2f s, %.0f kB/s %c", what_.c_str(), done_, total_,
                seconds.count(), kilobytes / std::max(seconds.count(), 0.001), end);
    std::fflush(stdout);
}
