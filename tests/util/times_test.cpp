// Time stamps, dated names, the tick counter.
#include <gtest/gtest.h>
#include <string>

#include "brisolt.h"
#include "platform/clock.h"

namespace brisolt {
namespace {

/// The clock stands at a moment for the length of a scope.
class Moment {
public:
    explicit Moment(const clock::LocalTime& time) { clock::setTestLocalTime(&time); }
    ~Moment() { clock::setTestLocalTime(nullptr); }
    Moment(const Moment&) = delete;
    Moment& operator=(const Moment&) = delete;
};
constexpr clock::LocalTime january{1980, 1, 2, 2, 3, 55, 0};
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
    Moment lastSunday({2023, 12, 31, 22, 0, 9, 999});
    EXPECT_EQ(bracketed(0), "<31 12 2023 0 22 00 09 00>");
    struct {
        int32_t offset;
        const char* hour;
    } rows[] = {{3, "23"}, {-13, "9"}, {-22, "0"}, {INT32_MAX, "23"}, {INT32_MIN, "0"}};
    for (const auto& row : rows)
        EXPECT_EQ(bracketed(row.offset), std::string("<31 12 2023 0 ") + row.hour + " 00 09 00>");
}

TEST(Times, UnderscoreStampAndDatedNames) {
    Moment now(january);
    char text[21];
    EXPECT_EQ(ComGetTimeDateStrFormat2(text), 1);
    EXPECT_STREQ(text, stamp);

    EXPECT_EQ(dated("report.txt", 1), "report_1980_01_02_02_03_55.txt");
    EXPECT_EQ(dated("a.b.c", 1), std::string("a") + stamp + ".b" + stamp + ".c");
    char inPlace[60] = "a.b";
    EXPECT_EQ(ComCreateDatedFilename(inPlace, inPlace), 1);
    EXPECT_EQ(inPlace, std::string("a") + stamp + ".b");

    char spaced[60] = "report.txt";
    EXPECT_EQ(ComCreateDatedFilename2(spaced, spaced), 0);
    EXPECT_STREQ(spaced, "report.txt _1980_01_02_02_03_55");
}

TEST(Times, DatedNamesHaveRoomFor399Characters) {
    Moment now(january);
    EXPECT_EQ(dated(std::string(260, 'a'), 0), std::string(260, 'a')); // too long to be looked at
    std::string dots;                                                  // 19 and their stamps fill it
    for (int i = 0; i < 19; ++i)
        dots += std::string(stamp) + '.';
    EXPECT_EQ(dated(std::string(19, '.'), 1), dots);
    EXPECT_EQ(dated(std::string(259, '.'), 0), dots);
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
