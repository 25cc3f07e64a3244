// Another process for a test to talk to: the far end of a line that is not ourselves. Runs
// BRISOLT_TEST_PEER, or any other program, and never outlives the test.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace brisolt::test {

class PeerProcess {
public:
    using Milliseconds = std::chrono::milliseconds;
    struct Options {
        bool captureErrors = false; ///< its standard error comes with its standard output
        int inherit = -1;           ///< a descriptor that it gets under the same number
    };

    PeerProcess(const std::string& program, const std::vector<std::string>& arguments, Options options);
    PeerProcess(const std::string& program, const std::vector<std::string>& arguments)
        : PeerProcess(program, arguments, Options{}) {}
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;
    ~PeerProcess();

    /// The next line of its standard output without its end; nothing when the time or the output is over.
    std::optional<std::string> readLine(Milliseconds limit = Milliseconds(10000));
    /// All the rest of its standard output, or what came in time.
    std::string readAll(Milliseconds limit = Milliseconds(10000));

    /// To its standard input; false when it reads no more.
    bool write(std::string_view bytes);
    void closeInput();

    /// Its exit code, 128 and the signal's number if one ended it, -1 when it still runs after `limit`.
    int wait(Milliseconds limit = Milliseconds(10000));
    void kill(int signal);
    pid_t id() const { return id_; }

private:
    bool fill(std::chrono::steady_clock::time_point end);

    pid_t id_ = -1;
    std::optional<int> exitCode_;
    int input_ = -1;
    int output_ = -1;
    std::string pending_; ///< read from its output and not yet asked for
};

} // namespace brisolt::test
