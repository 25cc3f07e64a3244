// The search that looks at new bytes only, beside one that looks at all of them each time.
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "script/stimulus_match.h"
#include "support/bare_port.h"

namespace brisolt::test {
namespace {

struct Plain {
    Dropped dropped;
    std::string kept;

    int32_t add(const std::vector<uint8_t>& bytes, const std::vector<std::string>& awaited) {
        for (const uint8_t byte : bytes)
            if (!(byte == 0 && dropped.nul) && !(byte == 255 && dropped.byte255))
                kept += static_cast<char>(byte);
        for (std::size_t i = 0; i < awaited.size(); ++i)
            if (std::strstr(kept.c_str(), awaited[i].c_str()) != nullptr)
                return static_cast<int32_t>(i);
        return -1;
    }
};

TEST(StimulusMatch, FindsWhatSearchingEverythingFinds) {
    const BarePort bare(34);
    std::mt19937 random(5);
    const auto upTo = [&random](std::size_t most) { return random() % (most + 1); };
    int found = 0;
    for (int run = 0; run < 4000; ++run) {
        std::vector<std::string> awaited(1 + upTo(3));
        for (std::string& string : awaited)
            for (std::size_t left = 1 + upTo(5); left > 0; --left)
                string += "ab\xFF"[upTo(2)];
        if (upTo(30) == 0)
            awaited.back().clear();
        std::vector<const char*> pointers;
        for (const std::string& string : awaited)
            pointers.push_back(string.c_str());
        const Dropped dropped{.nul = upTo(1) == 1, .byte255 = upTo(1) == 1};
        Plain plain{dropped, {}};
        StimulusMatch match(*bare, pointers, dropped);
        for (int adds = 0; adds < 40; ++adds) {
            std::vector<uint8_t> bytes(upTo(1) == 1 ? 1 : upTo(6));
            for (uint8_t& byte : bytes)
                byte = std::array<uint8_t, 12>{97, 98, 97, 98, 97, 98, 97, 98, 99, 255, 255, 0}[upTo(11)];
            const int32_t expected = plain.add(bytes, awaited);
            ASSERT_EQ(match.add(bytes), expected);
            ASSERT_EQ(std::string(bare->workArea->matchBuf, static_cast<std::size_t>(match.length())),
                      plain.kept);
            ASSERT_EQ(bare->workArea->matchBuf[match.length()], '\0');
            if (expected >= 0) {
                ++found;
                break;
            }
        }
    }
    EXPECT_GT(found, 500);
    EXPECT_LT(found, 3900);
}

} // namespace
} // namespace brisolt::test
