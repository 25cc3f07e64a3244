// A telephony service that says whatever the input has it say: its results, its records, its messages. What it does
// not lie about is as an honest one would have it.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "telephony/service_records.h"

namespace brisolt::fuzz {

struct Lies {
    std::string_view left; ///< of the input; none left, and it is honest
    service::Callback callback = nullptr;
    std::vector<int> handles; ///< those of its calls; whoever gets one has to close it

    uint32_t next() {
        const auto byte = left.empty() ? uint8_t{0} : static_cast<uint8_t>(left.front());
        left.remove_prefix(left.empty() ? 0 : 1);
        return byte;
    }
    /// Small, a single bit, close below zero, or anything.
    uint32_t word() {
        const uint32_t kind = next();
        if (kind < 128)
            return kind;
        if (kind < 192)
            return 1U << kind % 32;
        return kind < 224 ? 0U - kind % 32 : next() << 24 | next() << 16 | next() << 8 | next();
    }
    template <std::size_t Count> uint32_t oneOf(const uint32_t (&honestFirst)[Count]) {
        const std::size_t choice = next() % (2 * Count);
        return choice < Count ? honestFirst[choice] : word();
    }
    /// Tells the library a few things, on the calling thread.
    void talk(uint32_t line, uint32_t call);
};

constexpr uint32_t lineHandle = 0x101, callHandle = 0x201;

inline void Lies::talk(uint32_t line, uint32_t call) {
    namespace message = service::message;
    namespace callState = service::callState;
    for (uint32_t messages = next() % 4; messages > 0 && callback != nullptr; --messages) {
        const uint32_t handle = oneOf({call, line});
        const uint32_t what =
            oneOf({message::callState, message::lineDeviceState, message::lineClosed, message::reply});
        const uint32_t first =
            oneOf({callState::connected, callState::offering, service::deviceState::ringing,
                   callState::disconnected, callState::idle, callState::busy});
        const uint32_t second = word();
        callback(handle, what, 0, first, second, word());
    }
}

} // namespace brisolt::fuzz
