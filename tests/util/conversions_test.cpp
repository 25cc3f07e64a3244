// Bytes, strings and hex, and the dump of an array.
#include <array>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "brisolt.h"
#include "brisolt_host.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "support/bare_port.h"
#include "transfer/files.h"

namespace brisolt {
namespace {

TEST(Conversions, OfBytesStringsAndHex) {
    EXPECT_EQ(ComSwapBytes_16Int(0x1234), 0x3412);
    EXPECT_EQ(ComSwapBytes_32Int(0x11223344), 0x44332211U);

    char text[] = "abcde", other[] = "......";
    EXPECT_EQ(ComSwapBytes_String(text, other, 5), 1);
    EXPECT_STREQ(other, "edcba.");
    EXPECT_EQ(ComSwapBytes_String(text, text, 4), 1);
    EXPECT_STREQ(text, "dcbae");

    const char zeros[] = {'a', 0, 'b'};
    char out[] = "......";
    EXPECT_EQ(ComStr_To_Array(zeros, out, 3), 1);
    EXPECT_EQ(std::memcmp(out, "a\0b...", 6), 0);

    auto asString = [&](const char* source, int32_t length, int32_t result, const char* left) {
        std::memset(out, '.', 6);
        EXPECT_EQ(ComArray_To_String(out, source, length), result);
        EXPECT_EQ(std::memcmp(out, left, 6), 0) << source << ' ' << length;
    };
    asString("abc", 10, 3, "abc\0..");
    asString("abc", 0, 0, "\0.....");
    asString("abc", -1, -1, "......");

    const uint8_t elements[] = {10, 20, 255};
    EXPECT_EQ(ComStr_To_Array_Element(elements, 3), 255);
    EXPECT_EQ(ComStr_To_Array_Element(elements, 0), -1);

    char hex[] = ".........!";
    EXPECT_EQ(ComConvertStringtoHEXString(hex, "\x41\x0A\xFF", 3), 1);
    EXPECT_STREQ(hex, " 41 a ff");
    EXPECT_EQ(hex[9], '!');
}

class ArrayDump : public testing::Test {
protected:
    ArrayDump() {
        clock::LocalTime moment{2026, 11, 19, 4, 51, 58, 7};
        clock::setTestLocalTime(&moment);
    }
    ~ArrayDump() override { clock::setTestLocalTime(nullptr); }
    const std::string header = "\r\n\r\n  ****OPEN DEBUG FILE - Array Debug  Version:5.30  Date:11/19/26 "
                               "Time:04:51:58 ****\r\n";
    const std::string stamp = "\r\n[11/19/26 04:51:58:7 p90]";
    test::Files files;
    std::string path = files.path("array.txt");
    const std::array<uint8_t, 3> array{0x0A, 0xFF, 0};
};

TEST_F(ArrayDump, HasALineAnElementAndLeavesPort90ToItsUser) {
    test::BarePort port(90);
    std::string log = files.path("log.txt");
    ASSERT_EQ(ComSetDebugFile(90, log.c_str(), "Mine"), 1);
    std::string before = files.bytes("log.txt");
    EXPECT_EQ(ComArray_Diagnose(array.data(), 3, path.c_str()), 1);
    EXPECT_EQ(files.bytes("array.txt"), header + stamp + "Element: 0 HexValue: a" + stamp +
                                            "Element: 1 HexValue: ff" + stamp + "Element: 2 HexValue: 0");
    EXPECT_EQ(files.bytes("log.txt"), before);
    EXPECT_EQ(ComWriteDebugFileString(90, "still"), 1);
    EXPECT_EQ(files.bytes("log.txt"), before + stamp + "still");
}

TEST_F(ArrayDump, Refusals) {
    EXPECT_EQ(ComArray_Diagnose(array.data(), 1, std::string(260, 'a').c_str()), -1);
    memory::failAllocations(0, 1);
    EXPECT_EQ(ComArray_Diagnose(array.data(), 1, path.c_str()), -1);
    memory::failAllocations(0, 0);
    EXPECT_EQ(files.bytes("array.txt"), "");

    std::string missing = files.path("missing/array.txt");
    EXPECT_EQ(ComArray_Diagnose(array.data(), 1, missing.c_str()), 1);
    char reason[300];
    ASSERT_GT(ComHostGetErrorText(reason, sizeof reason), 0);
    EXPECT_NE(std::string(reason).find(missing), std::string::npos);
}

} // namespace
} // namespace brisolt
