// Telnet as a filter: what comes is the same wherever a read has cut it.
#include <gtest/gtest.h>

#include <algorithm>

#include "device/network/telnet.h"

namespace brisolt::test {
namespace {

using network::Telnet;

struct Heard {
    std::string data, messages, replies;
    bool operator==(const Heard&) const = default;
};

/// What a stream is that comes in pieces of these sizes, the last as often as needed.
Heard filtered(const std::string& stream, std::size_t first, std::size_t then) {
    Heard heard;
    Telnet telnet;
    ByteRing outgoing;
    EXPECT_TRUE(outgoing.reserve(4096));
    const Telnet::Listener listener{.hear =
                                        [](void* self, std::span<const uint8_t> message) noexcept {
                                            auto& all = static_cast<Heard*>(self)->messages;
                                            all.append(message.begin(), message.end()).append("|");
                                        },
                                    .self = &heard};
    for (std::size_t at = 0, size = first; at < stream.size(); at += size, size = then) {
        std::string piece = stream.substr(at, size);
        size = piece.size();
        const int32_t kept = telnet.filter(reinterpret_cast<uint8_t*>(piece.data()),
                                           static_cast<int32_t>(piece.size()), outgoing, listener);
        heard.data += piece.substr(0, static_cast<std::size_t>(kept));
    }
    heard.replies.assign(outgoing.front().begin(), outgoing.front().end());
    return heard;
}

TEST(Telnet, EveryValueCutAtEveryPlace) {
    std::string data, stream;
    for (int value = 0; value < 256; ++value) {
        data += static_cast<char>(value);
        stream += std::string(value == 255 ? 2 : 1, static_cast<char>(value));
        if (value % 64 == 63) { // commands between them, and the last right behind a 255
            stream += "\xff\xfd\x01\xff\xfb\x01\xff\xf1";                  // DO, WILL something else; nothing
            stream += "\xff\xfa\x2c\x6b\xff\xff\xff\xf0";                  // a message that holds a 255
            stream += "\xff\xfa\x18what is this\xff\xf0";                  // of another option
            stream += "\xff\xfa\x2c" + std::string(300, 'x') + "\xff\xf0"; // for people
            stream += "\xff\xfa\x2c\xff\xfe\x2a";                          // one that is not ended
        }
    }
    const Heard whole = filtered(stream, stream.size(), 1);
    EXPECT_EQ(whole.data, data);
    EXPECT_EQ(whole.messages, "\x6b\xff|\x6b\xff|\x6b\xff|\x6b\xff|");
    EXPECT_EQ(whole.replies.substr(0, 6), "\xff\xfc\x01\xff\xfe\x01") << "both are refused";
    for (std::size_t cut = 0; cut <= stream.size(); ++cut)
        EXPECT_EQ(filtered(stream, cut, stream.size()), whole) << "cut at " << cut;
    EXPECT_EQ(filtered(stream, 1, 1), whole);
}

} // namespace
} // namespace brisolt::test
