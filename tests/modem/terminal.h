// A program at a modem's pseudo terminal, in the hands of a test.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "stream/open_port.h"

namespace brisolt::test {

class Terminal {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit Terminal(const std::string& path) : file_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_GE(file_, 0) << path;
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { close(); }

    void close() {
        if (file_ >= 0)
            ::close(file_);
        file_ = -1;
    }
    void send(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = ::write(file_, bytes.data(), bytes.size());
            ASSERT_GT(count, 0);
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    /// Whether a byte could be sent at once.
    bool hasRoom() const {
        pollfd entry{file_, POLLOUT, 0};
        return poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0;
    }
    /// All that comes up to and with that text. A failure, and what came, when it does not come.
    std::string until(std::string_view text, Milliseconds limit = Milliseconds(20000)) {
        const auto end = Clock::now() + limit;
        std::size_t at = 0;
        while ((at = got_.find(text)) == std::string::npos)
            if (!more(end)) {
                ADD_FAILURE() << "no \"" << text << "\" in \"" << got_ << '"';
                return std::exchange(got_, {});
            }
        return take(at + text.size());
    }
    std::string read(std::size_t count, Milliseconds limit = Milliseconds(20000)) {
        const auto end = Clock::now() + limit;
        while (got_.size() < count && more(end)) {
        }
        return take(std::min(count, got_.size()));
    }
    /// What comes until nothing has come for a while.
    std::string untilQuiet(Milliseconds quiet = Milliseconds(150)) {
        while (more(Clock::now() + quiet)) {
        }
        return take(got_.size());
    }
    /// Sends a command line; all that comes up to OK.
    std::string ask(const std::string& line) {
        send(line + "\r");
        return until("OK\r\n");
    }

private:
    using Clock = std::chrono::steady_clock;

    bool more(Clock::time_point end) {
        const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now()).count();
        pollfd entry{file_, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(std::max<Milliseconds::rep>(left, 0))) <= 0)
            return false;
        std::array<char, 4096> bytes{};
        const ssize_t count = ::read(file_, bytes.data(), bytes.size());
        if (count > 0)
            got_.append(bytes.data(), static_cast<std::size_t>(count));
        return count > 0;
    }
    std::string take(std::size_t count) {
        std::string bytes = got_.substr(0, count);
        got_.erase(0, count);
        return bytes;
    }

    int file_;
    std::string got_;
};

/// All that comes at a port up to and with that text. A failure when it does not come.
inline std::string untilOnPort(int32_t port, const std::string& text) {
    std::string got;
    eventually([&] {
        for (int32_t byte = 0; !got.ends_with(text) && (byte = ComGetc(port)) >= 0;)
            got += static_cast<char>(byte);
        return got.ends_with(text);
    });
    EXPECT_TRUE(got.ends_with(text)) << got;
    return got;
}

} // namespace brisolt::test
