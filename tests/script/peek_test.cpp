// Looking into the receive ring, also where the bytes lie in two pieces.
#include "stream/open_port.h"
#include "support/bare_port.h"

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
        EXPECT_EQ(ComPeekChar(number, 'C', &position), 1);
        EXPECT_EQ(position, 2);
        EXPECT_EQ(ComPeekChar(number, 233, &position), 1);
        EXPECT_EQ(position, 3);
        EXPECT_EQ(ComPkChar(number, 'B'), 1);
        EXPECT_EQ(ComPeekChar(number, 'z', &position), 0);
        EXPECT_EQ(position, 3) << "left alone";
        EXPECT_EQ(ComPeekString(number, "C?O", &position), 1);
        EXPECT_EQ(position, 2);
        EXPECT_EQ(ComPeekString_NoWildCard(number, "OK?", &position), 1);
        EXPECT_EQ(position, 4);
        EXPECT_EQ(ComPeekString_NoWildCard(number, "", &position), 1);
        EXPECT_EQ(position, 0);
        char copy[16] = {};
        EXPECT_EQ(ComPeekBuf(number, copy, 5), 5);
        EXPECT_STREQ(copy, "ABC\xE9O");
        EXPECT_EQ(ComPeekBuf(number, copy, 50), 7);
        EXPECT_EQ(readUpTo(number, 50), "ABC\xE9OK?") << "nothing was taken";
    }
}

TEST(Peeks, ANulEndsTheTextAndFindsAreTraced) {
    const BarePort bare(number);
    const LogFile trace;
    ComSetPortDebugFile(number, trace.path().c_str());
    fill(*bare, std::string("xy\0OK", 5), 7);
    int32_t position = -1;
    EXPECT_EQ(ComPeekString(number, "OK", &position), 0);
    EXPECT_EQ(ComPeekString_NoWildCard(number, "OK", &position), 0);
    EXPECT_EQ(ComPeekChar(number, 'K', &position), 1);
    EXPECT_EQ(ComPkChar(number, 'O'), 1);
    EXPECT_EQ(trace.entries({"ComP"}),
              (std::vector<std::string>{"ComPeekChar found position at 4", "ComPkChar found position at 3"}));
}

TEST(Peeks, RefuseWhatTheyMust) {
    char copy[4];
    int32_t position = 9;
    EXPECT_EQ(ComPeekChar(number, 'a', &position), -1) << "not open";
    const BarePort bare(number);
    EXPECT_EQ(ComPeekString(number, "a", &position), 0) << "nothing there";
    fill(*bare, "abc", 0);
    for (const int32_t character : {-1, 256})
        EXPECT_EQ(ComPkChar(number, character), -1);
    EXPECT_EQ(ComPeekBuf(number, copy, -5), 0);
    EXPECT_EQ(ComPeekBuf(number, nullptr, 3), -1);
    EXPECT_EQ(ComPeekChar(number, 'a', nullptr), -1);
    EXPECT_EQ(position, 9);
}

} // namespace
} // namespace brisolt::test
