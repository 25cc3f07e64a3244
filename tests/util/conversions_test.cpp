// Bytes, strings and hex, the dump of an array, time stamps, dated names, the tick counter.

#include "platform/error_text.h"
#include "platform/memory.h"
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

TEST(Conversions, OfBytesStringsAndHex) {
    EXPECT_EQ(ComSwapBytes_16Int(0x1234), 0x3412);
    EXPECT_EQ(ComSwapBytes_32Int(0x11223344), 0x44332211U);
    char text[] = "abcde", out[] = "......", hex[] = ".........!";
    EXPECT_EQ(ComSwapBytes_String(text, out, 5) + ComSwapBytes_String(text, text, 4), 2);
    EXPECT_EQ(out + std::string(text), "edcba.dcbae");
    EXPECT_EQ(ComArray_To_String(out, "abc", -1), -1);
    EXPECT_EQ(ComArray_To_String(out + 4, "abc", 0), 0);
    EXPECT_EQ(ComArray_To_String(out, "xyz", 10), 3);
    EXPECT_EQ(std::string(out, 6), std::string("xyz\0\0.", 6));
    EXPECT_EQ(ComStr_To_Array("d\0e", out, 3), 1);
    EXPECT_EQ(std::string(out, 6), std::string("d\0e\0\0.", 6));
    EXPECT_EQ(ComStr_To_Array_Element("\x0A\x14\xFF", 3), 255);
    EXPECT_EQ(ComStr_To_Array_Element("\x0A\x14\xFF", 0), -1);
    EXPECT_EQ(ComConvertStringtoHEXString(hex, "\x41\x0A\xFF", 3), 1);
    EXPECT_EQ(std::string(hex, 10), std::string(" 41 a ff\0!", 10));
}

TEST(ArrayDump, HasALineAnElementAndLeavesPort90ToItsUser) {
    const test::Moment now{{2026, 11, 19, 4, 51, 58, 7}};
    const std::string header = "\r\n\r\n  ****OPEN DEBUG FILE - Array Debug  Version:5.30  Date:11/19/26 "
                               "Time:04:51:58 ****\r\n",
                      stamp = "\r\n[11/19/26 04:51:58:7 p90]";
    const test::Files files;
    const std::string missing = files.path("missing/array.txt"), log = files.path("log.txt");
    const auto dump = [](const std::string& path) { return ComArray_Diagnose("\x0A\xFF", 3, path.c_str()); };
    test::BarePort port(90);
    ASSERT_EQ(ComSetDebugFile(90, log.c_str(), "Mine"), 1);
    const std::string before = files.bytes("log.txt");
    memory::failAllocations(0, 1);
    EXPECT_EQ(dump(files.path("array.txt")), -1);
    memory::failAllocations(0, 0);
    EXPECT_EQ(dump(files.path("array.txt")), 1);
    EXPECT_EQ(files.bytes("array.txt"), header + stamp + "Element: 0 HexValue: a" + stamp +
                                            "Element: 1 HexValue: ff" + stamp + "Element: 2 HexValue: 0");
    EXPECT_EQ(files.bytes("log.txt"), before);
    EXPECT_EQ(ComWriteDebugFileString(90, "still"), 1);
    EXPECT_EQ(files.bytes("log.txt"), before + stamp + "still");
    EXPECT_EQ(dump(std::string(260, 'a')), -1);
    EXPECT_EQ(dump(missing), 1);
    EXPECT_NE(errorText().find(missing), std::string::npos);
}

constexpr const char* stamp = "_1980_01_02_02_03_55";

std::string bracketed(int32_t offset) {
    char text[27 + 1] = "..........................!";
    EXPECT_EQ(ComGetTimeDateStr(text, offset), 1);
    return text;
}

std::string dated(const std::string& name, int32_t result) {
    std::string text(400, '!');
    EXPECT_EQ(ComCreateDatedFilename(name.c_str(), text.data()), result) << name;
    return text.c_str();
}

TEST(Times, BracketedStamp) {
    test::Moment lastSunday({2023, 12, 31, 22, 0, 9, 999});
    for (const auto& [offset, hour] :
         {std::pair{0, "22"}, {3, "23"}, {-13, "9"}, {-22, "0"}, {INT32_MAX, "23"}, {INT32_MIN, "0"}})
        EXPECT_EQ(bracketed(offset), std::string("<31 12 2023 0 ") + hour + " 00 09 00>");
}

TEST(Times, UnderscoreStampAndDatedNames) {
    test::Moment now({1980, 1, 2, 2, 3, 55, 0});
    char text[21];
    EXPECT_EQ(ComGetTimeDateStrFormat2(text), 1);
    EXPECT_STREQ(text, stamp);
    EXPECT_EQ(dated("a.b.c", 1), std::string("a") + stamp + ".b" + stamp + ".c");
    char inPlace[60] = "a.b", spaced[60] = "report.txt";
    EXPECT_EQ(ComCreateDatedFilename(inPlace, inPlace), 1);
    EXPECT_EQ(inPlace, std::string("a") + stamp + ".b");
    EXPECT_EQ(ComCreateDatedFilename2(spaced, spaced), 0);
    EXPECT_STREQ(spaced, "report.txt _1980_01_02_02_03_55");

    // There is room for 399 characters.
    std::string dots;
    for (int i = 0; i < 19; ++i)
        dots += std::string(stamp) + '.';
    EXPECT_EQ(dated(std::string(19, '.'), 1), dots) << "19 and their stamps fill it";
    EXPECT_EQ(dated(std::string(259, '.'), 0), dots);
    EXPECT_EQ(dated(std::string(260, 'a'), 0), std::string(260, 'a')) << "too long to be looked at";
}

TEST(Times, Ticks) {
    uint32_t before = ComGetCurrentTime();
    clock::sleep(20);
    uint32_t after = _curr_time();
    EXPECT_GE(after - before, 20U);
    EXPECT_EQ(ComCompareTime(before, 5), 1);
    EXPECT_EQ(ComCompareTime(ComGetCurrentTime(), 60000), 0);
    // The counter has wrapped since, or so it looks.
    EXPECT_EQ(ComCompareTime(ComGetCurrentTime() + 0x80000000, 0x80000000 + 60000), 0);
    EXPECT_EQ(ComCompareTime(ComGetCurrentTime() + 60000, 0x80000000), 1);
}

} // namespace
} // namespace brisolt
