// A program at a modem's pseudo terminal, in the hands of a test.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "support/open_port.h"

namespace brisolt::test {

class Terminal {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit Terminal(const std::string& path)
        : file_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
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
    void send(std::string_view bytes) const { EXPECT_EQ(writeTo(file_, bytes, 100s), bytes.size()); }
    /// All that comes up to and with that text. A failure, and what came, when it does not come.
    std::string until(std::string_view text, Milliseconds limit = 20s) const {
        std::string got;
        for (const auto end = SteadyClock::now() + limit; !got.ends_with(text);) {
            const auto left = std::chrono::ceil<Milliseconds>(end - SteadyClock::now());
            const std::string byte = readFrom(file_, 1, std::max(left, 0ms));
            if (byte.empty()) {
                ADD_FAILURE() << "no \"" << text << "\" in \"" << got << '"';
                break;
            }
            got += byte;
        }
        return got;
    }
    std::string read(std::size_t count, Milliseconds limit = 20s) const {
        return readFrom(file_, count, limit);
    }
    /// Sends a command line; all that comes up to and with its end.
    std::string ask(const std::string& line, std::string_view end = "OK\r\n") const {
        send(line + "\r");
        return until(end);
    }

private:
    int file_;
};

} // namespace brisolt::test
