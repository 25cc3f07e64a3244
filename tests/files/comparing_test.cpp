// Files compared with files, and with the bytes they should hold.

#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using Lines = std::vector<std::string>;

/// The text with the bytes at those places (from 0) made different.
std::string spoiled(const std::string& text, const std::vector<std::size_t>& places) {
    std::string other = text;
    for (const std::size_t place : places)
        other[place] = static_cast<char>(text[place] ^ 0x80);
    return other;
}

class Comparing : public testing::Test {
protected:
    int32_t difference(const std::string& one, const std::string& other) const {
        return ComDiffFile(files.make("one", one).c_str(), files.make("other", other).c_str());
    }
    Lines report(const std::string& one, const std::string& other) const {
        const test::LogFile own;
        EXPECT_EQ(ComDiffFile_Report(3, files.make("one", one).c_str(), files.make("other", other).c_str(),
                                     own.path().c_str()),
                  0);
        return own.entries();
    }
    int32_t verify(int32_t offset, const std::string& bytes) const {
        return ComVerifyFileWrite(3, files.path("one").c_str(), offset, bytes.data(),
                                  static_cast<int32_t>(bytes.size()));
    }
    test::BarePort port{3};
    test::Files files;
    test::LogFile log;
};

TEST_F(Comparing, TheFirstByteThatDiffers) {
    const std::string text = test::pattern(2500);
    EXPECT_EQ(difference(text, text), 0);
    for (const std::size_t place : {0, 4, 999, 1000, 2499})
        EXPECT_EQ(difference(text, spoiled(text, {place, 2499})), static_cast<int32_t>(place) + 1);
    EXPECT_EQ(difference(text, text + "x"), -4);
    EXPECT_EQ(difference(text, spoiled(text, {3}) + "x"), 4); // the first block is of one length
    EXPECT_EQ(difference("abc", "xbcd"), -4);
}

TEST_F(Comparing, RangesOfDifferences) {
    const std::string text = test::pattern(20), longText = test::pattern(2010);
    const auto range = [](const char* what) { return "ERROR RANGE: " + std::string(what); };
    const std::string done = "Comparison Completed Total Bytes:20";
    EXPECT_EQ(report(text, text), Lines{done});
    EXPECT_EQ(report(text, spoiled(text, {0})), (Lines{range("1 to 1 Total Wrong: 1"), done}));
    EXPECT_EQ(report(text, spoiled(text, {18, 19})), (Lines{range("19 to 20 Total Wrong: 2"), done}));
    EXPECT_EQ(report(text, spoiled(text, {2, 6, 11})),
              (Lines{range("3 to 7 Total Wrong: 5"), range("12 to 12 Total Wrong: 1"), done}));
    EXPECT_EQ(report(longText + "more", spoiled(longText, {998, 1001})), // a range across two blocks
              (Lines{range("999 to 1002 Total Wrong: 4"), "Comparison Completed Total Bytes:2010"}));
}

TEST_F(Comparing, WhatCannotBeComparedOrReported) {
    const std::string path = files.make("one", "abc"), to = log.path(), nowhere = files.path("no/report");
    const char *const there = path.c_str(), *const missing = "/no/such/file", *const bad = "/proc/self/mem";
    const std::tuple<const char*, const char*, int32_t> rows[] = {
        {missing, there, -1}, {there, missing, -2}, {bad, there, -3}, {there, bad, -3}};
    for (const auto& [one, other, result] : rows) {
        EXPECT_EQ(ComDiffFile(one, other), result) << one << ' ' << other;
        EXPECT_EQ(ComDiffFile_Report(3, one, other, to.c_str()), result) << one << ' ' << other;
        EXPECT_TRUE(result == -3 || !std::filesystem::exists(to)) << "the log is left as it was";
    }
    EXPECT_EQ(ComDiffFile_Report(3, there, there, nowhere.c_str()), -1);
}

TEST_F(Comparing, AFileAgainstTheBytesItShouldHold) {
    const std::string text = test::pattern(5000), one = files.make("one", text);
    EXPECT_EQ(ComVerifyFileWriteInit(3, one.c_str(), log.path().c_str()), 1);
    EXPECT_EQ(verify(0, text), 1); // larger than any buffer
    EXPECT_EQ(verify(4990, text.substr(4990)), 1);
    files.make("one", text.substr(0, 9) + '\xFE' + "\x0A" + text.substr(11));
    EXPECT_EQ(verify(7, text.substr(7, 2) + "\x80\x7F" + text.substr(11, 2)), -2);
    EXPECT_EQ(verify(4990, std::string(2048, 'x')), -1);
    std::filesystem::remove(one);
    EXPECT_EQ(verify(0, "x"), -1);
    EXPECT_EQ(log.entries(), (Lines{"Block Write Verified: 0", "Block Write Verified: 4990",
                                    "Write Mismatch:  Char No: 9  Should be: 80  File Contains: fe",
                                    "Write Mismatch:  Char No: 10  Should be: 7f  File Contains: a",
                                    "Failed to read sufficient bytes  wanted: 2048  got: 10",
                                    "Failed to open file: " + one}));
}

TEST_F(Comparing, TheFirstBytesOfAStream) {
    // What is asked in turn, and the answers; minus as many bytes as matched.
    const std::string zero(1, '\0'), asked[] = {"\x05", zero + "\x05", "\x05", zero + "\x07\x09", "anything"};
    const int32_t answers[] = {0, -1, -1, 1, 1};
    ASSERT_EQ(ComInitVerifyWrite(3), 1);
    for (std::size_t i = 0; i < std::size(asked); ++i)
        EXPECT_EQ(ComVerifyWrite(3, asked[i].data(), static_cast<int32_t>(asked[i].size())), answers[i]);
    ASSERT_EQ(ComInitVerifyWrite(3), 1);
    EXPECT_EQ(ComVerifyWrite(3, "\0\0\x07", 3), 1);
}

} // namespace
} // namespace brisolt
