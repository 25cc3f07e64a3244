#include "port.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "failure.h"

std::string hostReason(int32_t result) {
    std::array<char, 4096> text{};
    if (ComHostGetErrorText(text.data(), text.size()) > 0)
        return text.data();
    return "the library gives no reason (result " + std::to_string(result) + ")";
}

Port::Port(const LineOptions& options, const std::string& path)
    : device_(options.device), number_(ComHostOpen(path.c_str(), options.baud(), options.framing().c_str())) {
    if (number_ < 1)
        fail(hostReason(number_), exitFailed);
    if (options.flow == "none")
        return;
    if (const int32_t result = ComHostSetLine(number_, 0, nullptr, options.flowCode()); result != 1) {
        const std::string reason = hostReason(result);
        close(0);
        fail(reason, exitFailed);
    }
}

bool Port::close(int32_t milliseconds) {
    const bool all = number_ < 1 || ComHostClose(number_, milliseconds) == 1;
    number_ = 0;
    return all;
}

bool Port::gone() const {
    return ComHostGetPortState(number_) == COM_HOST_DEVICE_GONE;
}

void Port::fail(const std::string& reason, int code) const {
    // The host's own reason names the device already.
    const bool named = reason.find(device_.substr(0, device_.find('?'))) != std::string::npos;
    throw Failure(named ? reason : device_ + ": " + reason, code);
}

void Port::failGone() const {
    fail("the device has gone away", exitGone);
}

void requireWritable(const std::string& file) {
    constexpr int flags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int descriptor = open(file.c_str(), flags);
    const bool missing = descriptor < 0 && errno == ENOENT;
    if (missing)
        descriptor = open(file.c_str(), flags | O_CREAT | O_EXCL, 0666);
    if (descriptor < 0)
        throw Failure(file + ": " + std::strerror(errno));
    // One that nobody may write is not written for the superuser either.
    struct stat status {};
    const bool suits = fstat(descriptor, &status) == 0 &&
                       (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)) && (status.st_mode & 0222) != 0;
    close(descriptor);
    if (missing)
        unlink(file.c_str());
    if (!suits)
        throw Failure(file + ": not a file that may be written");
}

void startTrace(int32_t port, const std::string& file) {
    if (!file.empty())
        ComSetPortDebugFile(port, file.c_str());
}
