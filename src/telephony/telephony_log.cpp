#include "telephony/telephony_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "platform/clock.h"
#include "platform/mutex.h"
#include "port/log_file.h"
#include "port/port_table.h"

namespace brisolt::telephony {

namespace {

// A log file that somebody writes to refuses everybody else. Calls of several devices write here at the same
// time, and the log is what explains a failed call: an entry waits for its turn instead of being lost.
constexpr int32_t attempts = 50;
constexpr uint32_t betweenAttempts = 2; ///< milliseconds

Mutex turn;
bool writable GUARDED_BY(turn) =
    true; ///< under turn; nobody waits again and again for a file that cannot be written at all

void writeEntry(Port& context, std::string_view text) noexcept {
    MutexLock lock(turn);
    for (int32_t left = writable ? attempts : 1; left > 0; --left) {
        writable = logs::write(context, logs::Log::debug, logs::Stamp::stamped, text) >= 0;
        if (writable)
            return;
        if (left > 1)
            clock::sleep(betweenAttempts);
    }
}

} // namespace

void log(const char* format, ...) noexcept {
    HeldPort context(contextPort);
    if (!context)
        return;
    char text[logs::entrySize];
    std::va_list arguments;
    va_start(arguments, format);
    int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    writeEntry(*context, {text, static_cast<std::size_t>(std::clamp(length, 0, logs::entrySize - 1))});
}

} // namespace brisolt::telephony
