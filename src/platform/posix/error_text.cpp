#include "platform/error_text.h"

#include <new>
#include <utility>

#include "platform/lasting.h"
#include "platform/thread.h"

namespace brisolt {

namespace {

thread_local std::string* own = nullptr;
thread_local thread::End ending{[] { delete std::exchange(own, nullptr); }};

} // namespace

void setErrorText(std::string text) noexcept {
    debugOutput(text);
    if (!own) {
        try {
            own = new std::string;
        } catch (const std::bad_alloc&) {
            return;
        }
        if (!thread::atEnd(ending)) {
            delete std::exchange(own, nullptr);
            return;
        }
    }
    *own = std::move(text);
}

void setErrorTextFrom(std::initializer_list<std::string_view> parts) noexcept {
    std::string text;
    try {
        for (std::string_view part : parts)
            text += part;
    } catch (const std::bad_alloc&) {
        text.clear();
    }
    setErrorText(std::move(text));
}

const std::string& errorText() noexcept {
    static Lasting<std::string> nothing;
    return own ? *own : *nothing;
}

} // namespace brisolt
