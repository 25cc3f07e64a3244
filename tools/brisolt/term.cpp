// A terminal on a port: one loop that sleeps until there is something to do on either side.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "commands.h"
#include "local_terminal.h"
#include "output.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int32_t port = 1;
constexpr uint32_t ringSize = 65536;
constexpr char quitKey = 0x1d; // Ctrl-]
// The library tells when something has come but not when something has gone, so these two are looked at.
constexpr int roomInterval = 5;
constexpr int sentInterval = 10;

int32_t codeOf(std::string_view name, std::initializer_list<std::string_view> names, int32_t first) {
    return first + static_cast<int32_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

int32_t flowCode(std::string_view flow) {
    return codeOf(flow, {"rtscts", "xonxoff", "none", "dtrdsr"}, 0);
}

class Terminal {
public:
    explicit Terminal(const TermOptions& options);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { ComClose(port); }

    /// Returns when the user quits, or when the input has ended, all is sent and nothing more comes.
    void run();

private:
    bool receive();
    void readInput();
    void send();
    bool finished();
    int patience(bool more) const;
    void sleep(int timeout);
    void show(std::string_view bytes);
    std::string withLineEnds(std::string_view bytes);

    const TermOptions& options_;
    bool fromTerminal_ = LocalTerminal::present();
    bool toTerminal_ = isatty(STDOUT_FILENO) != 0;
    int device_ = -1;    ///< the device's descriptor where it is one, to see when it goes away
    std::string unsent_; ///< input the transmit ring had no room for
    bool inputOver_ = false;
    bool quit_ = false;
    bool lastWasReturn_ = false;
    Clock::time_point lastActivity_ = Clock::now();
};

/// Something is wrong with the device, and not with our side.
struct DeviceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string errorText(int32_t result) {
    std::array<char, 512> text{};
    if (ComHostGetErrorText(text.data(), text.size()) > 0)
        return text.data();
    return "the port cannot be opened with these settings (result " + std::to_string(result) + ")";
}

/// A handle may be anything a driver likes; it is a descriptor when it stands for the device file.
int descriptorOf(int32_t handle, const std::string& path) {
    struct stat byHandle {
    }, byPath{};
    if (fstat(handle, &byHandle) != 0 || stat(path.c_str(), &byPath) != 0 || !S_ISCHR(byHandle.st_mode))
        return -1;
    return byHandle.st_rdev == byPath.st_rdev ? handle : -1;
}

/// The library goes on without a trace that it cannot write. A user who asks for one would rather know before
/// the device has been touched.
void requireLog(const std::string& path) {
    constexpr int flags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int file = open(path.c_str(), flags);
    const bool missing = file < 0 && errno == ENOENT;
    if (missing)
        file = open(path.c_str(), flags | O_CREAT | O_EXCL, 0666);
    if (file < 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    // One that nobody may write is not written for the superuser either.
    struct stat status {};
    const bool suits = fstat(file, &status) == 0 && (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)) &&
                       (status.st_mode & 0222) != 0;
    close(file);
    if (missing)
        unlink(path.c_str());
    if (!suits)
        throw std::runtime_error(path + ": not a file that may be written");
}

Terminal::Terminal(const TermOptions& options) : options_(options) {
    if (ComHostMapDevice(port, options.device.c_str()) != 1)
        throw DeviceError("the name is too long");
    const int32_t parity = codeOf(options.parity, {"none", "odd", "even", "mark", "space"}, 1);
    const int32_t stopBits = codeOf(options.stopBits, {"1", "2", "1.5"}, 1);
    const int32_t result =
        ComOpen("brisolt term", port, options.baud, options.dataBits, parity, stopBits, ringSize, ringSize);
    if (result != port)
        throw DeviceError(errorText(result));

    device_ = descriptorOf(ComPortdcb(port), options.device);
    ComHostSetLossless(port, 1);
    ComSetBackgroundTimeout(port, 0);
    ComSetNotifyThreadMessageAnyChar(port, ComHostThreadId());
    if (!options.log.empty())
        ComSetPortDebugFile(port, options.log.c_str());
    if (options.flow != "none")
        ComSetFlow(port, flowCode(options.flow));
}

void Terminal::run() {
    while (!quit_) {
        const bool more = receive();
        send();
        if (finished())
            return;
        sleep(patience(more));
    }
}

/// Shows what has come; true when there may be more of it at once.
bool Terminal::receive() {
    ComHostMessage message{};
    int32_t next = 0;
    while ((next = ComHostGetMessage(&message, 0)) == 1)
        ComHostDispatchMessage(&message);
    if (next < 0)
        quit_ = true;

    std::array<char, 16384> bytes{};
    const int32_t count = ComRead(port, bytes.data(), bytes.size());
    if (count > 0) {
        show({bytes.data(), static_cast<std::size_t>(count)});
        lastActivity_ = Clock::now();
    }
    return count == static_cast<int32_t>(bytes.size());
}

void Terminal::readInput() {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    // A terminal that has been hung up ends like a file.
    if (count < 0 && errno != EIO)
        throw std::runtime_error(std::string("standard input: ") + std::strerror(errno));
    if (count <= 0) {
        inputOver_ = true;
        return;
    }
    std::string_view typed(bytes.data(), static_cast<std::size_t>(count));
    if (fromTerminal_ && typed.find(quitKey) != std::string_view::npos) {
        typed = typed.substr(0, typed.find(quitKey));
        quit_ = true;
    }
    const std::string lines = withLineEnds(typed);
    unsent_ = options_.crlf ? lines : std::string(typed);
    if (options_.echo)
        show(toTerminal_ ? lines : unsent_);
    send();
}

void Terminal::send() {
    if (unsent_.empty())
        return;
    const int32_t taken = ComWrite(port, unsent_.data(), static_cast<int32_t>(unsent_.size()));
    if (taken > 0) {
        unsent_.erase(0, static_cast<std::size_t>(taken));
        lastActivity_ = Clock::now();
    }
}

bool Terminal::finished() {
    if (!inputOver_ || !unsent_.empty())
        return false;
    if (ComOutBufStatus(port) > 0)
        lastActivity_ = Clock::now();
    return Clock::now() - lastActivity_ >= milliseconds(options_.lingerMs);
}

/// How long the loop may sleep when nothing wakes it, in milliseconds.
int Terminal::patience(bool more) const {
    if (more)
        return 0;
    if (!unsent_.empty())
        return roomInterval;
    return inputOver_ ? sentInterval : -1;
}

void Terminal::sleep(int timeout) {
    // A negative descriptor is passed over by poll.
    const bool wantsInput = !inputOver_ && unsent_.empty();
    std::array<pollfd, 3> entries{pollfd{ComHostMessageDescriptor(), POLLIN, 0},
                                  pollfd{wantsInput ? STDIN_FILENO : -1, POLLIN, 0}, pollfd{device_, 0, 0}};
    if (poll(entries.data(), entries.size(), timeout) <= 0)
        return;
    if (entries[1].revents != 0)
        readInput();
    if (entries[2].revents != 0) {
        while (receive()) {
        }
        throw DeviceError("the device has gone away");
    }
}

void Terminal::show(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count > 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
        else if (count < 0 && errno == EAGAIN) {
            pollfd entry{STDOUT_FILENO, POLLOUT, 0};
            poll(&entry, 1, -1);
        } else if (errno != EINTR)
            throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
    }
}

/// Enter on a terminal is a carriage return, a line of a file ends in a line feed, or in both already.
std::string Terminal::withLineEnds(std::string_view bytes) {
    std::string result;
    for (const char byte : bytes) {
        if (byte == '\r' || (byte == '\n' && !lastWasReturn_))
            result += "\r\n";
        else if (byte != '\n')
            result += byte;
        lastWasReturn_ = byte == '\r';
    }
    return result;
}

} // namespace

int runTerminal(const TermOptions& options) {
    // A reader that leaves shows as a failed write, so that the port is closed properly.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (!options.log.empty())
            requireLog(options.log);
        Terminal terminal(options);
        if (LocalTerminal::present())
            std::fprintf(stderr, "%s, %d baud. Ctrl-] quits.\n", printable(options.device).c_str(),
                         options.baud);
        const LocalTerminal raw;
        terminal.run();
        return exitDone;
    } catch (const DeviceError& error) {
        // The host's own reason names the device already.
        const std::string reason = error.what();
        const bool named = reason.find(options.device) != std::string::npos;
        complain(named ? reason : options.device + ": " + reason);
        return exitFailed;
    }
}
