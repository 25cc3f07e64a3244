// How far a transfer is, on standard error when that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class ProgressBar {
public:
    explicit ProgressBar(const std::string& name) : name_(name) {}
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    /// Clears its line.
    ~ProgressBar();

    void show(uint64_t done, uint64_t total);
    /// "12.3 KB in 1.1 s, 11.2 KB/s" of so many bytes.
    std::string summary(uint64_t bytes) const;

private:
    using Clock = std::chrono::steady_clock;
    double elapsed() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    std::string name_;
    bool shown_ = false;
    Clock::time_point start_ = Clock::now(), next_ = start_;
};
