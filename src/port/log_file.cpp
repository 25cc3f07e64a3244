#include "port/log_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/file.h"
#include "platform/mutex.h"
#include "platform/process.h"
#include "port/capture_hook.h"
#include "util/time_strings.h"

namespace brisolt::logs {
namespace {

using Name = char[nameSize];

Name& nameOf(Port& port, Log log) noexcept {
    switch (log) {
    case Log::trace: return port.workArea->portDebugFileName;
    case Log::protocol: return port.workArea->protocolDebugFileName;
    case Log::verify: return port.workArea->verifyFileName;
    case Log::debug: break;
    }
    return port.workArea->debugFileName;
}

/// A copy, so that nobody who switches a log waits for a file. False when the log is off.
bool copyName(Port& port, Log log, Name& copy) noexcept {
    MutexLock lock(port.logMutex);
    std::memcpy(copy, nameOf(port, log), sizeof copy);
    return copy[0] != '\0';
}

/// Spares a switched-off log the expansion of its entries.
bool isOff(Port& port, Log log) noexcept {
    if (log == Log::protocol && capturing(port) != nullptr)
        return false;
    MutexLock lock(port.logMutex);
    return nameOf(port, log)[0] == '\0';
}

/// The stamp of an entry. Readers of the trace tell its entries by the blank before the milliseconds.
class StampText {
public:
    StampText(const Port& port, bool blankBeforeMilliseconds) noexcept {
        TimeStrings now = timeStringsNow();
        int length = std::snprintf(text_, sizeof text_,
                                   blankBeforeMilliseconds ? "\r\n[%s %s %hu p%d]" : "\r\n[%s %s:%hu p%d]",
                                   now.date, now.time, now.millisecond, port.number.load());
        length_ = static_cast<std::size_t>(length);
    }
    std::string_view view() const noexcept { return {text_, length_}; }

private:
    char text_[64];
    std::size_t length_;
};

int32_t capture(CaptureFunc keep, Port& port, Stamp stamp, std::string_view text) noexcept {
    if (stamp == Stamp::stamped)
        keep(port, StampText(port, true).view());
    keep(port, text);
    return 1;
}

bool appendEntry(const char* path, Port& port, Log log, Stamp stamp, std::string_view text) noexcept {
    bool isTrace = log == Log::trace;
    file::Appender file(path, isTrace ? file::Sharing::all : file::Sharing::readOnly,
                        isTrace ? file::Missing::refuse : file::Missing::create);
    if (!file)
        return false;
    if (stamp == Stamp::stamped && !file.append(StampText(port, isTrace).view()))
        return false;
    return text.empty() || file.append(text);
}

} // namespace

bool name(Port& port, Log log, const char* path) noexcept {
    std::size_t length = path == nullptr ? 0 : std::strlen(path);
    if (length >= nameSize)
        return false;
    MutexLock lock(port.logMutex);
    Name& name = nameOf(port, log);
    std::memset(name, 0, sizeof name);
    if (length > 0)
        std::memcpy(name, path, length);
    if (log == Log::trace)
        port.traceOn = length > 0;
    return true;
}

int32_t write(Port& port, Log log, Stamp stamp, std::string_view text) noexcept {
    if (log == Log::protocol)
        if (CaptureFunc keep = capturing(port))
            return capture(keep, port, stamp, text);
    Name path;
    if (!copyName(port, log, path))
        return 0;
    if (!appendEntry(path, port, log, stamp, text))
        return -2;
    if (log != Log::trace)
        process::flushStreams();
    return 1;
}

int32_t format(Port& port, Log log, const char* text, std::va_list arguments) noexcept {
    if (isOff(port, log))
        return 0;
    char expanded[entrySize];
    int length = std::vsnprintf(expanded, sizeof expanded, text, arguments);
    return write(port, log, Stamp::stamped,
                 {expanded, static_cast<std::size_t>(std::clamp(length, 0, entrySize - 1))});
}

int32_t entry(Port& port, Log log, const char* text, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, text);
    int32_t result = format(port, log, text, arguments);
    va_end(arguments);
    return result;
}

} // namespace brisolt::logs
