#include "far_end.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "network_end.h"

namespace bench {
namespace {

struct Job {
    char kind;
    std::size_t bytes;
};

constexpr std::size_t blockSize = 65536;

int makeMaster(std::string& path) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 128> name{};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name.data(), name.size()) != 0)
        throw std::system_error(errno, std::generic_category(), "pseudo terminal");
    termios settings{};
    tcgetattr(master, &settings);
    cfmakeraw(&settings);
    tcsetattr(master, TCSANOW, &settings);
    path = name.data();
    return master;
}

/// The masters of so many lines, or the one listener to which they all lead.
std::vector<int> makeLines(std::size_t count, Reach reach, std::vector<std::string>& paths) {
    std::vector<int> masters;
    paths.resize(count);
    if (reach == Reach::terminal) {
        for (std::string& path : paths)
            masters.push_back(makeMaster(path));
        return masters;
    }
    int number = 0;
    masters.push_back(listenForLines(number));
    const char* const scheme = reach == Reach::tcp ? "tcp" : "rfc2217";
    std::fill(paths.begin(), paths.end(), scheme + (":127.0.0.1:" + std::to_string(number)));
    return masters;
}

/// The process behind the lines. A line that breaks ends it, and with it the measurement.
class Worker {
public:
    explicit Worker(std::vector<int> masters, std::optional<Connections> connections)
        : masters_(std::move(masters)), connections_(std::move(connections)) {
        for (std::size_t i = 0; i < pattern_.size(); ++i)
            pattern_[i] = patternAt(i);
    }

    void run(int control) {
        Job job{};
        while (awaitJob(control), read(control, &job, sizeof job) == sizeof job) {
            if (job.kind == 'e')
                echo(job.bytes);
            else
                stream(job.kind != 'r' ? job.bytes : 0, job.kind != 's' ? job.bytes : 0);
            if (write(control, &job.kind, 1) != 1)
                return;
        }
    }

private:
    void awaitJob(int control) {
        if (!connections_)
            return;
        connections_->await(control);
        masters_ = connections_->sockets();
    }

    void echo(std::size_t bytes) {
        std::vector<pollfd> entries;
        for (const int master : masters_)
            entries.push_back({master, POLLIN, 0});
        while (bytes > 0) {
            // One line needs no poll: the wait is in the read.
            if (entries.size() > 1)
                poll(entries.data(), entries.size(), -1);
            for (const pollfd& entry : entries)
                if (entries.size() == 1 || (entry.revents & POLLIN) != 0)
                    bytes -= std::min(bytes, sendBack(entry.fd));
        }
    }

    std::size_t sendBack(int master) {
        std::size_t count = checked(read(master, block_.data(), block_.size()));
        if (connections_)
            count = connections_->filter(master, block_.data(), count);
        checked(write(master, block_.data(), count));
        return count;
    }

    void stream(std::size_t toSend, std::size_t toRead) {
        const int master = masters_.front();
        const bool both = toSend > 0 && toRead > 0;
        fcntl(master, F_SETFL, both ? O_RDWR | O_NONBLOCK : O_RDWR);
        std::size_t sent = 0;
        while (sent < toSend || toRead > 0) {
            if (both)
                waitFor(master, sent<toSend, toRead> 0);
            if (sent < toSend) {
                const std::size_t at = sent % blockSize;
                sent += checked(write(master, pattern_.data() + at, std::min(blockSize - at, toSend - sent)));
            }
            if (toRead > 0)
                toRead -= checked(read(master, block_.data(), std::min(blockSize, toRead)));
        }
        fcntl(master, F_SETFL, O_RDWR);
    }

    static void waitFor(int master, bool sending, bool reading) {
        pollfd entry{master, static_cast<short>((sending ? POLLOUT : 0) | (reading ? POLLIN : 0)), 0};
        poll(&entry, 1, -1);
    }

    static std::size_t checked(ssize_t count) {
        if (count < 0 && errno != EAGAIN)
            _exit(1);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }

    std::vector<int> masters_;
    std::optional<Connections> connections_; ///< those that come and go
    std::array<char, blockSize> pattern_{};
    std::array<char, blockSize> block_{};
};

} // namespace

FarEnd::FarEnd(std::size_t lines, int core, Reach reach) {
    std::vector<int> masters = makeLines(lines, reach, paths_);
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    child_ = fork();
    if (child_ == 0) {
        close(ends[0]);
        pin(core);
        std::optional<Connections> connections;
        if (reach != Reach::terminal)
            connections.emplace(masters.front(), reach == Reach::remotePort);
        Worker(std::move(masters), std::move(connections)).run(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    control_ = ends[0];
    for (const int master : masters)
        close(master);
}

FarEnd::~FarEnd() {
    close(control_);
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
}

void FarEnd::begin(char kind, std::size_t bytes) {
    const Job job{kind, bytes};
    if (send(control_, &job, sizeof job, MSG_NOSIGNAL) != sizeof job)
        throw std::system_error(errno, std::generic_category(), "far end");
}

void FarEnd::finish() {
    pollfd entry{control_, POLLIN, 0};
    char kind = 0;
    if (poll(&entry, 1, 20000) != 1 || read(control_, &kind, 1) != 1)
        throw std::runtime_error("the far end did not get all that was sent");
}

void pin(int core) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < CPU_SETSIZE; ++i)
        if (core < 0 || i == core)
            CPU_SET(i, &set);
    sched_setaffinity(0, sizeof set, &set);
}

std::vector<std::string> silentLines(std::size_t count) {
    std::vector<std::string> paths;
    makeLines(count, Reach::terminal, paths);
    return paths;
}

} // namespace bench
