// Exported: the log files of a port.
#include <cstdarg>

#include "api/border.h"
#include "api/export.h"
#include "brisolt/logs.h"
#include "diag/debug_logs.h"
#include "port/trace.h"

using namespace brisolt;
using logs::Log;
using logs::Stamp;

namespace {

/// use(open port). An entry or a header for which there is no memory is one that cannot be written.
template <class Use> int32_t logging(int32_t port, Use use) noexcept {
    return onPort(port, -1, [=](Port& held) { return guarded(-2, [&] { return use(held); }); });
}

int32_t switchLog(int32_t port, Log log, const char* path, const char* title) noexcept {
    return logging(port, [=](Port& held) { return logs::switchTo(held, log, path, title); });
}

int32_t writeFormatted(int32_t port, Log log, const char* format, std::va_list arguments) noexcept {
    if (format == nullptr)
        return -1;
    return onPort(port, -1, [&](Port& held) { return logs::format(held, log, format, arguments); });
}

int32_t writeText(int32_t port, Log log, const char* text) noexcept {
    if (text == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& held) { return logs::write(held, log, Stamp::stamped, text); });
}

int32_t writeOnOwnLine(int32_t port, Stamp stamp, const char* text) noexcept {
    if (text == nullptr)
        return -1;
    return logging(port, [=](Port& held) { return logs::writeLine(held, Log::debug, stamp, text); });
}

int32_t writeBytes(int32_t port, Log log, const HexDump& form, const void* bytes, int32_t length) noexcept {
    return logging(port, [=, &form](Port& held) { return logs::writeDump(held, log, form, bytes, length); });
}

} // namespace

BRISOLT_EXPORT int32_t ComSetPortDebugFile(int32_t port, const char* path) {
    // Without memory there is no header; the trace is on all the same.
    return onPort(port, -1,
                  [=](Port& held) { return guarded(1, [=, &held] { return setTraceFile(held, path); }); });
}

BRISOLT_EXPORT int32_t ComSetDebugFile(int32_t port, const char* path, const char* title) {
    return switchLog(port, Log::debug, path, title);
}
BRISOLT_EXPORT int32_t ComSetProtocolDebugFile(int32_t port, const char* path, const char* protocolName) {
    return switchLog(port, Log::protocol, path, protocolName);
}
BRISOLT_EXPORT int32_t ComSetDebugVerifyFile(int32_t port, const char* path, const char* title) {
    return switchLog(port, Log::verify, path, title);
}

// ---- formatted entries

BRISOLT_EXPORT int32_t ComWriteDebugFile(int32_t port, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    int32_t result = writeFormatted(port, Log::debug, format, arguments);
    va_end(arguments);
    return result;
}
BRISOLT_EXPORT int32_t ComWriteDebugVerifyFile(int32_t port, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    int32_t result = writeFormatted(port, Log::verify, format, arguments);
    va_end(arguments);
    return result;
}
BRISOLT_EXPORT int32_t ComWriteProtocolDebugFile(int32_t port, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    int32_t result = writeFormatted(port, Log::protocol, format, arguments);
    va_end(arguments);
    return result;
}

// ---- texts and bytes

BRISOLT_EXPORT int32_t ComWriteDebugFileString(int32_t port, const char* text) {
    return writeText(port, Log::debug, text);
}
BRISOLT_EXPORT int32_t ComWriteProtocolDebugFileString(int32_t port, const char* text) {
    return writeText(port, Log::protocol, text);
}
BRISOLT_EXPORT int32_t ComWriteDebugFileStringLF(int32_t port, const char* text) {
    return writeOnOwnLine(port, Stamp::stamped, text);
}
BRISOLT_EXPORT int32_t ComWriteDebugFileStringNL(int32_t port, const char* text) {
    return writeOnOwnLine(port, Stamp::none, text);
}
BRISOLT_EXPORT int32_t ComWriteDebugVerifyFileString(int32_t port, const char* text) {
    if (text == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& held) { return logs::writeCut(held, Log::debug, text); });
}
BRISOLT_EXPORT int32_t ComWriteDebugFileStringHEX(int32_t port, const void* bytes, int32_t length) {
    return writeBytes(port, Log::debug, debugDump, bytes, length);
}
BRISOLT_EXPORT int32_t ComWriteDebugVerifyFileStringHEX(int32_t port, const void* bytes, int32_t length) {
    return writeBytes(port, Log::debug, verifyDump, bytes, length);
}
BRISOLT_EXPORT int32_t ComWriteProtocolDebugFileStringHEX(int32_t port, const void* bytes, int32_t length) {
    return writeBytes(port, Log::protocol, protocolDump, bytes, length);
}
