// Two directions of a line on one screen.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

class TapView {
public:
    explicit TapView(bool hex) : hex_(hex) {}

    /// From the program (transmitted) or to it. What belongs together comes on one line.
    void add(bool transmitted, std::string_view bytes);
    /// Something that is no data, on a line of its own.
    void tell(const std::string& text);
    /// Milliseconds until `flush` is due, -1 when nothing waits.
    int due() const;
    void flush();

private:
    using Clock = std::chrono::steady_clock;
    void print();

    bool hex_;
    bool transmitted_ = false;
    std::string row_;  ///< not shown yet
    std::string time_; ///< of its first byte
    Clock::time_point last_{};
};
