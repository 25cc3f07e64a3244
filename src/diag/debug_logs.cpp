#include "diag/debug_logs.h"

#include <string>

#include "platform/file.h"
#include "platform/process.h"
#include "port/capture_hook.h"
#include "util/time_strings.h"

namespace brisolt::logs {
namespace {

std::string header(Log log, const char* title) {
    TimeStrings now = timeStringsNow();
    std::string text = "\r\n\r\n  ****OPEN ";
    text += log == Log::protocol ? "PROTOCOL DEBUG FILE - Protocol:" : "DEBUG FILE - ";
    text += title == nullptr ? "" : title;
    return text + "  Version:" + version + "  Date:" + now.date + " Time:" + now.time + " ****\r\n";
}

} // namespace

int32_t switchTo(Port& port, Log log, const char* path, const char* title) {
    if (log == Log::protocol)
        if (CaptureFunc keep = capturing(port)) {
            keep(port, header(log, title));
            return 1;
        }
    if (!name(port, log, path))
        return -1;
    if (path == nullptr || path[0] == '\0')
        return 1;
    std::string text = header(log, title);
    // By the caller's path, not by the name in the record: another thread may switch it again meanwhile.
    {
        file::Appender file(path, file::Sharing::readOnly, file::Missing::create);
        if (!file || !file.append(text))
            return -2;
    }
    process::flushStreams();
    return 1;
}

int32_t writeLine(Port& port, Log log, Stamp stamp, std::string_view text) {
    return write(port, log, stamp, std::string("\r\n").append(text));
}

int32_t writeCut(Port& port, Log log, std::string_view text) noexcept {
    return write(port, log, Stamp::stamped, text.substr(0, entrySize - 1));
}

int32_t writeDump(Port& port, Log log, const HexDump& form, const void* bytes, int32_t length) {
    if (length <= 0)
        return write(port, log, Stamp::stamped, {});
    if (bytes == nullptr)
        return -1;
    std::string text = hexDump(form, {static_cast<const uint8_t*>(bytes), static_cast<std::size_t>(length)});
    return form.cut ? writeCut(port, log, text) : write(port, log, Stamp::stamped, text);
}

} // namespace brisolt::logs
