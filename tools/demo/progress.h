// How far a transfer is, for somebody who watches.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

/// Redraws one line on a terminal; elsewhere only the end is told.
class Progress {
public:
    Progress(std::string what, std::size_t total) : what_(std::move(what)), total_(total) {}

    /// Throws when nothing has moved for a long time.
    void at(std::size_t done);

private:
    using Clock = std::chrono::steady_clock;

    void print(char end) const;

    std::string what_;
    std::size_t total_;
    std::size_t done_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastStep_ = start_;
};
