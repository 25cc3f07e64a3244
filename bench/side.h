// The ways of using a serial line that are compared. Each does the same jobs the way its users would.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// One line. Everything throws when a job gets stuck.
class Line {
public:
    Line() = default;
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    virtual ~Line() = default;

    /// Sends a byte and waits for the byte that comes back.
    virtual void roundTrip() = 0;
    /// Reads `total` bytes in calls for `call` bytes.
    virtual void receive(char* to, std::size_t total, std::size_t call) = 0;
    /// Hands over `total` bytes in calls with `call` bytes.
    virtual void send(char* from, std::size_t total, std::size_t call) = 0;
    /// Both at once.
    virtual void exchange(char* to, char* from, std::size_t total, std::size_t call) = 0;
    /// Bytes that could be read without waiting.
    virtual std::size_t waiting() = 0;
    /// Reads bytes that are waiting, one a call.
    virtual void readSingly(char* to, std::size_t count) = 0;
};

/// Many lines in the hands of one thread, with buffers of 4 KB a direction each.
class Lines {
public:
    Lines() = default;
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;
    virtual ~Lines() = default;

    /// On all lines at the same time: sends `size` bytes and takes them back, so many times.
    virtual void roundTrips(int times, std::size_t size) = 0;
    /// Waits for data that does not come.
    virtual void idle(int milliseconds) = 0;
};

constexpr std::size_t smallBuffer = 4096;
constexpr std::size_t largestMessage = 256;

struct Side {
    const char* name;
    std::unique_ptr<Line> (*open)(const std::string& path);
    /// Null for a side that has no way of its own to wait for many lines.
    std::unique_ptr<Lines> (*openMany)(const std::vector<std::string>& paths);
};

extern const Side rawSide, exchangeSide, cppSide, brisoltSide, asioSide, serialportSide;

} // namespace bench
