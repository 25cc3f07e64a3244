// What the user sees of the bytes that come.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

enum class Stamps { none, timeOfDay, sinceStart, sinceLast };

class Display {
public:
    bool hex = false;
    Stamps stamps = Stamps::none;

    /// Writes the bytes to standard output in the form that is set. Throws Failure.
    void show(std::string_view bytes);
    /// Ends a line of hex that is not full, and one that the device has begun when `always`.
    void endLine(bool always);

    /// While it is held nothing is shown; what comes waits in memory.
    void hold(bool on);
    bool held() const { return held_; }
    /// Whether so much waits that no more should be read.
    bool full() const { return waiting_.size() >= mostWaiting; }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t mostWaiting = 1 << 20;

    std::string formatted(std::string_view bytes);
    void addHex(std::string& text, char byte);
    void finishHex(std::string& text);
    std::string stamp();

    bool held_ = false;
    std::string waiting_;
    std::string row_; ///< the bytes of a line of hex so far
    bool lineStart_ = true;
    Clock::time_point start_ = Clock::now(), last_ = start_;
};

/// The next kind of stamps, and its name for people.
Stamps next(Stamps stamps);
std::string nameOf(Stamps stamps);
