#include "platform/error_text.h"

#include <atomic>
#include <climits>
#include <new>
#include <utility>

#include <syslog.h>

#include "platform/posix/thread_end.h"

namespace brisolt {

namespace {

constexpr std::string_view lineBreaks = "\r\n";

thread_local std::string* own = nullptr;
std::atomic<void (*)(std::string_view)> currentSink{nullptr};

std::string_view trimmed(std::string_view text) noexcept {
    auto first = text.find_first_not_of(lineBreaks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(lineBreaks) - first + 1);
}

const std::string& nothing() {
    static const std::string& empty = *new std::string; // outlives whatever asks while the program ends
    return empty;
}

} // namespace

void setErrorText(std::string text) noexcept {
    debugOutput(text);
    if (!own) {
        try {
            own = new std::string;
        } catch (const std::bad_alloc&) {
            return;
        }
        atThreadEnd([](void*) { delete std::exchange(own, nullptr); }, nullptr);
    }
    *own = std::move(text);
}

const std::string& errorText() noexcept {
    return own ? *own : nothing();
}

// The system log and not standard error: the terminal belongs to the program, not to a library.
void debugOutput(std::string_view text) noexcept {
    if (auto sink = currentSink.load()) {
        sink(text);
        return;
    }
    std::string_view line = trimmed(text);
    if (!line.empty() && line.size() <= INT_MAX)
        syslog(LOG_USER | LOG_DEBUG, "%.*s", static_cast<int>(line.size()), line.data());
}

void setDebugOutputSink(void (*sink)(std::string_view text)) noexcept {
    currentSink = sink;
}

} // namespace brisolt
