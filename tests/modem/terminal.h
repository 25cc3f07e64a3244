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
    /// All that comes up to and with that text. A failure, and what came, when it does not come.
    std::string until(std::string_view text, Milliseconds limit = Milliseconds(20000)) {
        const bool came = more(limit, [&] { return got_.find(text) != std::string::npos; });
        EXPECT_TRUE(came) << "no \"" << text << "\" in \"" << got_ << '"';
        return take(came ? got_.find(text) + text.size() : got_.size());
    }
    std::string read(std::size_t count, Milliseconds limit = Milliseconds(20000)) {
        more(limit, [&] { return got_.size() >= count; });
        return take(std::min(count, got_.size()));
    }
    /// Sends a command line; all that comes up to OK.
    std::string ask(const std::string& line) {
        send(line + "\r");
        return until("OK\r\n");
    }

private:
    template <class Condition> bool more(Milliseconds limit, Condition enough) {
        const auto end = SteadyClock::now() + limit;
        for (ssize_t count = 1; !enough();) {
            const auto left = std::chrono::ceil<Milliseconds>(end - SteadyClock::now());
            pollfd entry{file_, POLLIN, 0};
            std::array<char, 4096> bytes{};
            if (poll(&entry, 1, static_cast<int>(std::max(left, 0ms).count())) <= 0 ||
                (count = ::read(file_, bytes.data(), bytes.size())) <= 0)
                return false;
            got_.append(bytes.data(), static_cast<std::size_t>(count));
        }
        return true;
    }
    std::string take(std::size_t count) {
        std::string bytes = got_.substr(0, count);
        got_.erase(0, count);
        return bytes;
    }

    int file_;
    std::string got_;
};

} // namespace brisolt::test
