#include "script/stimulus_match.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "port/port_table.h"

namespace brisolt {

StimulusMatch::StimulusMatch(Port& port, std::span<const char* const> awaited, Dropped dropped) noexcept
    : port_(port), dropped_(dropped), awaited_(awaited) {}

bool StimulusMatch::keeps(uint8_t byte) const noexcept {
    return !(byte == 0 && dropped_.nul) && !(byte == 255 && dropped_.byte255);
}

// Under the lock, so that others may look at the buffer's text meanwhile.
int32_t StimulusMatch::add(std::span<const uint8_t> bytes) noexcept {
    HeldLock lock(port_);
    char* text = port_.workArea->matchBuf;
    for (uint8_t byte : bytes) {
        if (!keeps(byte))
            continue;
        if (byte != 0 && textEnd_ == static_cast<std::size_t>(length_))
            ++textEnd_;
        text[length_++] = static_cast<char>(byte);
    }
    text[length_] = 0;
    port_.workArea->matchLen = length_;
    return find();
}

int32_t StimulusMatch::find() noexcept {
    std::string_view text(port_.workArea->matchBuf, textEnd_);
    std::size_t searched = std::exchange(searched_, textEnd_);
    auto ends = [=](const char* entry) {
        if (entry == nullptr) // by now: the list is the caller's
            return false;
        std::string_view string(entry);
        std::size_t back = string.empty() ? 0 : std::min(searched, string.size() - 1);
        return text.find(string, searched - back) != std::string_view::npos;
    };
    auto found = std::find_if(awaited_.begin(), awaited_.end(), ends);
    return found == awaited_.end() ? -1 : static_cast<int32_t>(found - awaited_.begin());
}

void clearMatch(Port& port) noexcept {
    HeldLock lock(port);
    std::memset(port.workArea->matchBuf, 0, sizeof port.workArea->matchBuf);
    port.workArea->matchLen = 0;
}

} // namespace brisolt
