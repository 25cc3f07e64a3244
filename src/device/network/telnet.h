// Telnet: what stands between the bytes of a line, taken out on the way in and put in on the way out. Nothing is ever
// needed beyond the caller's own room, and a command may be cut anywhere.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "device/byte_ring.h"

namespace brisolt::network {

class Telnet {
public:
    static constexpr uint8_t iac = 255;
    static constexpr uint8_t comPortOption = 44;
    /// Whoever hears of the com-port messages, each without its frame and its option byte.
    struct Listener {
        void (*hear)(void* self, std::span<const uint8_t> message) noexcept;
        void* self;
    };
    enum class ComPort : uint8_t { asked, agreed, refused };

    /// Offers what we want: binary both ways and the com-port option.
    void offer(ByteRing& outgoing) noexcept;
    /// Takes the commands out of what came, in place. Bytes left. Replies go to `outgoing`, whole or not at all.
    int32_t filter(uint8_t* bytes, int32_t count, ByteRing& outgoing, const Listener& listener) noexcept;
    ComPort comPort() const noexcept { return comPort_; }
    /// What came has ended in a command.
    bool inCommand() const noexcept { return seen_ != Seen::data; }

    /// A com-port message in its frame; false when `outgoing` has no room for it.
    static bool put(ByteRing& outgoing, uint8_t command, std::span<const uint8_t> value) noexcept;

private:
    enum class Seen : uint8_t { data, iac, verb, message, messageIac };
    void command(uint8_t byte) noexcept;
    void negotiate(uint8_t option, ByteRing& outgoing) noexcept;
    void collect(uint8_t byte) noexcept;
    void messageOver(const Listener& listener) noexcept;

    static constexpr std::size_t longestMessage = 64; ///< longer ones are for people, and skipped
    Seen seen_ = Seen::data;
    uint8_t verb_ = 0;
    ComPort comPort_ = ComPort::asked;
    std::array<uint8_t, longestMessage> message_{};
    std::size_t messageSize_ = 0;
    std::array<bool, 256> weDo_{};   ///< as it was offered or agreed to
    std::array<bool, 256> theyDo_{}; ///< as we asked for it, or they do it
};

} // namespace brisolt::network
