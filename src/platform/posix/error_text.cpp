#include "platform/error_text.h"

#include <new>
#include <utility>

#include "platform/posix/thread_end.h"

namespace brisolt {

namespace {

thread_local std::string* own = nullptr;

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

} // namespace brisolt
