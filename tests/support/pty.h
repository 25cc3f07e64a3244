// The far end of a line: the master of a pseudo terminal whose slave a test opens as its device.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/descriptor_io.h"

namespace brisolt::test {

class Pty {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// Raw from the start, so that nothing is echoed or translated before the slave's user has set it up.
    Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;
    ~Pty() { close(); }

    const std::string& slavePath() const { return slavePath_; }
    /// Non-blocking; -1 once closed.
    int master() const { return master_; }

    /// Bytes the slave's side took before the time was over: all of them unless it holds us off.
    std::size_t write(std::string_view bytes, Milliseconds limit = Milliseconds(5000)) const {
        return writeTo(master_, bytes, limit);
    }
    /// Waits for `count` bytes; fewer when the time is over first.
    std::string read(std::size_t count, Milliseconds limit = Milliseconds(5000)) const {
        return readFrom(master_, count, limit);
    }
    /// What comes until nothing has come for `quiet`.
    std::string readToQuiet(Milliseconds quiet = Milliseconds(100)) const {
        return test::readToQuiet(master_, quiet);
    }

    /// Whether somebody has the slave open.
    bool connected() const;
    /// Hangs up: to the slave's user the device is gone.
    void close();

private:
    int master_ = -1;
    std::string slavePath_;
};

} // namespace brisolt::test
