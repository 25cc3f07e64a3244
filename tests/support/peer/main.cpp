// The far end of a line in a process of its own, for tests that need one. Where a DEVICE is asked for, a
// number stands for a descriptor that the test handed down. Modes that have no end of their own end when
// standard input does, so that no peer outlives its test.
//
//     echo DEVICE          sends back all it reads
//     send DEVICE FILE     sends a file
//     hold PATH            keeps a device or file to itself; prints "held"
//     pty-echo             makes a pseudo terminal, prints its slave's path and echoes on it
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void makeRaw(int fd) {
    termios settings{};
    if (tcgetattr(fd, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(fd, TCSANOW, &settings);
    }
}

int openDevice(const std::string& name) {
    const bool number = !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
    const int fd = number ? std::atoi(name.c_str()) : open(name.c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0)
        fail(name);
    makeRaw(fd);
    return fd;
}

bool isPtyMaster(int fd) {
    int number = 0;
    return ioctl(fd, TIOCGPTN, &number) == 0;
}

/// Reads what is there, waiting for it; false at the end. A master whose slave nobody has open at the
/// moment is no end: the test opens it in its own time.
bool readSome(int fd, std::array<char, 4096>& bytes, std::string_view& got) {
    for (;;) {
        const ssize_t count = read(fd, bytes.data(), bytes.size());
        if (count > 0) {
            got = {bytes.data(), static_cast<std::size_t>(count)};
            return true;
        }
        if (count < 0 && errno == EAGAIN) {
            pollfd entry{fd, POLLIN, 0};
            poll(&entry, 1, -1);
        } else if (count < 0 && errno == EIO && isPtyMaster(fd)) {
            usleep(2000);
        } else {
            return false;
        }
    }
}

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            pollfd entry{fd, POLLOUT, 0};
            poll(&entry, 1, -1);
        } else {
            fail("write");
        }
    }
}

void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

int makePty() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        fail("pseudo terminal");
    makeRaw(master);
    say(ptsname(master));
    return master;
}

void waitForInputToEnd() {
    std::array<char, 256> bytes{};
    while (read(STDIN_FILENO, bytes.data(), bytes.size()) > 0) {
    }
}

void echo(int fd) {
    std::array<char, 4096> bytes{};
    std::string_view got;
    for (;;) {
        std::array<pollfd, 2> entries{pollfd{fd, POLLIN, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
        poll(entries.data(), entries.size(), -1);
        if (entries[1].revents != 0 && read(STDIN_FILENO, bytes.data(), bytes.size()) <= 0)
            return;
        if ((entries[0].revents & POLLIN) != 0) {
            if (!readSome(fd, bytes, got))
                return;
            writeAll(fd, got);
        } else if (entries[0].revents != 0) {
            if (!isPtyMaster(fd))
                return;
            usleep(2000);
        }
    }
}

void sendFile(int fd, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail(path);
    writeAll(fd, std::string(std::istreambuf_iterator<char>(file), {}));
    tcdrain(fd);
}

void hold(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0)
        fail(path);
    // The ioctl keeps out everybody but a privileged user, the lock whoever asks for it.
    if (isatty(fd) != 0 && ioctl(fd, TIOCEXCL) != 0)
        fail(path);
    if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        fail(path);
    say("held");
    waitForInputToEnd();
}

int run(const std::string& mode, const std::string& first, const std::string& second) {
    if (mode == "echo")
        echo(openDevice(first));
    else if (mode == "send")
        sendFile(openDevice(first), second);
    else if (mode == "hold")
        hold(first);
    else if (mode == "pty-echo")
        echo(makePty());
    else
        return 2;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "", argc > 3 ? argv[3] : "");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
