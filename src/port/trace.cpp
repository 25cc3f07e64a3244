#include "port/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "platform/file.h"
#include "port/log_file.h"
#include "util/hex.h"

namespace brisolt {
namespace {

constexpr std::size_t lineBytes = 40;

/// A close keeps the record for those who still hold the port, but the trace ends with it.
bool writable(const Port& port) noexcept {
    return tracing(port) && port.isOpen();
}

void traceLine(Port& port, std::span<const uint8_t> bytes) noexcept {
    char line[(lineBytes + 1) * 3];
    char* end = line;
    for (uint8_t byte : bytes) {
        *end++ = ' ';
        end = hex::put(end, byte);
    }
    logs::write(port, logs::Log::trace, logs::Stamp::stamped, {line, end});
}

} // namespace

int32_t setTraceFile(Port& port, const char* path) {
    if (!logs::name(port, logs::Log::trace, path))
        return -1;
    if (path == nullptr || path[0] == '\0')
        return 1;
    // A file that cannot be made is no failure: entries appear as soon as somebody has made it.
    file::Appender file(path, file::Sharing::all, file::Missing::create);
    if (file) {
        char header[64];
        std::snprintf(header, sizeof header, "  \r\n\r\nOPEN PORT DEBUG FILE Version %s\r\n ", logs::version);
        file.append(header);
    }
    return 1;
}

void trace(Port& port, const char* format, ...) noexcept {
    if (!writable(port))
        return;
    std::va_list arguments;
    va_start(arguments, format);
    logs::format(port, logs::Log::trace, format, arguments);
    va_end(arguments);
}

void traceBytes(Port& port, const char* heading, std::span<const uint8_t> bytes) noexcept {
    if (!writable(port))
        return;
    logs::write(port, logs::Log::trace, logs::Stamp::stamped, heading);
    // The first line is one byte longer than the others; readers of the trace count on it.
    for (std::size_t width = lineBytes + 1; !bytes.empty(); width = lineBytes) {
        std::size_t count = std::min(width, bytes.size());
        traceLine(port, bytes.first(count));
        bytes = bytes.subspan(count);
    }
}

} // namespace brisolt
