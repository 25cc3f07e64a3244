// Looking into the receive ring, also where the bytes lie in two pieces; and the matcher with its odd rules.
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 31;

/// Bytes that lie in the last two slots of the ring and from its start on.
void fill(Port& port, const std::string& bytes, int32_t tail) {
    port.record->rxTail = tail;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        port.rx.storage[(tail + static_cast<int32_t>(i)) % port.rx.size] = static_cast<uint8_t>(bytes[i]);
    port.record->rxHead = (tail + static_cast<int32_t>(bytes.size())) % port.rx.size;
}

TEST(Peeks, FindInBothPiecesOfTheRing) {
    const BarePort bare(number);
    for (const int32_t tail : {100, 2046}) {
        SCOPED_TRACE(tail);
        fill(*bare, "ABC\xE9OK?", tail);
        int32_t position = -1;
        const auto at = [&position](int32_t result) { return result == 1 ? position : -1; };
        EXPECT_EQ(at(ComPeekChar(number, 'C', &position)), 2);
        EXPECT_EQ(at(ComPeekChar(number, 233, &position)), 3);
        EXPECT_EQ(ComPkChar(number, 'B'), 1);
        EXPECT_EQ(ComPeekChar(number, 'z', &position), 0);
        EXPECT_EQ(position, 3) << "left alone";
        EXPECT_EQ(at(ComPeekString(number, "C?O", &position)), 2);
        EXPECT_EQ(at(ComPeekString_NoWildCard(number, "OK?", &position)), 4);
        EXPECT_EQ(at(ComPeekString_NoWildCard(number, "", &position)), 0);
        char copy[16] = {};
        EXPECT_EQ(ComPeekBuf(number, copy, 5), 5);
        EXPECT_STREQ(copy, "ABC\xE9O");
        EXPECT_EQ(ComPeekBuf(number, copy, 50), 7);
        EXPECT_EQ(readUpTo(number, 50), "ABC\xE9OK?") << "nothing was taken";
    }
}

TEST(Peeks, ANulEndsTheTextAndWhatIsWrongIsRefused) {
    int32_t position = 9;
    const BarePort bare(number);
    EXPECT_EQ(ComPeekString(number, "a", &position), 0) << "nothing there";
    const LogFile trace;
    ComSetPortDebugFile(number, trace.path().c_str());
    fill(*bare, std::string("xy\0OK", 5), 7);
    EXPECT_EQ(ComPeekString(number, "OK", &position), 0);
    EXPECT_EQ(ComPeekString_NoWildCard(number, "OK", &position), 0);
    for (const int32_t character : {-1, 256})
        EXPECT_EQ(ComPeekChar(number, character, &position), -1);
    EXPECT_EQ(ComPeekBuf(number, &position, -5), 0);
    EXPECT_EQ(position, 9);
    EXPECT_EQ(ComPeekChar(number, 'K', &position), 1);
    EXPECT_EQ(ComPkChar(number, 'O'), 1);
    EXPECT_EQ(trace.entries({"ComP"}),
              (std::vector<std::string>{"ComPeekChar found position at 4", "ComPkChar found position at 3"}));
}

// ---- Wildcards

TEST(Wildcards, AreFoundWhereTheirRulesSay) {
    const struct {
        const char *text, *pattern;
        int position;
    } cases[] = {
        {"login: ", "gin", 2},  {"anything", "", -1},  {"", "a", -1},          {"xaaab", "a*b", 1},
        {"ABCD", "AB?", 0},     {"x?y", "??", 0},      {"xyz", "??", -1},      {"cb", "?*?*", -1},
        {"caacb", "ca*?", 0},   {"bbcabc", "c?**", 2}, {"acbbab", "**b?*", 2}, {"aba", "?*?", 0},
        {"aaba", "?*a?b", 0},   {"cbba", "b??*?", 1},  {"bca", "b*a", 0},      {"aacbba", "b?*b*", 3},
        {"bbbaca", "c?*??", 4}, {"baaaba", "???", -1}, {"bbbc", "ba*c", 0},    {"a", "a?*?", -1},
        {"ABxAZC", "A?C", 0}, // the first attempt had met the wildcard
    };
    for (const auto& each : cases) {
        int32_t position = -1; // and so it stays when nothing is found
        EXPECT_EQ(ComStrStr(each.text, each.pattern, &position), each.position < 0 ? 0 : 1);
        EXPECT_EQ(position, each.position) << each.text << ' ' << each.pattern;
    }
}

TEST(Wildcards, DeepPatternsAreSurvived) {
    int32_t position = 5;
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "?*";
    EXPECT_EQ(ComStrStr("text", (deep + "x").c_str(), &position), 0);
    // Each open form asks what comes behind it, twice: what is known by then must not be found out again.
    const std::string stars(2000, '*');
    EXPECT_EQ(ComStrStr(stars.c_str(), (deep.substr(0, 298) + "x").c_str(), &position), 1);
}

} // namespace
} // namespace brisolt::test
