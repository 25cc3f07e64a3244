// The matcher: what people rely on, and where its rules are not what one would think.
#include <string>

#include <gtest/gtest.h>

#include "brisolt/scripting.h"

namespace {

int found(const std::string& text, const std::string& pattern) {
    int32_t position = -77;
    const int32_t result = ComStrStr(text.c_str(), pattern.c_str(), &position);
    EXPECT_EQ(result == 0, position == -77) << "nothing found leaves the position alone";
    return result == 1 ? position : -1;
}

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
    for (const auto& each : cases)
        EXPECT_EQ(found(each.text, each.pattern), each.position) << each.text << ' ' << each.pattern;
}

TEST(Wildcards, OddArgumentsAreSurvived) {
    int32_t position = 5;
    EXPECT_EQ(ComStrStr(nullptr, "a", &position), 0);
    EXPECT_EQ(ComStrStr("a", nullptr, &position), 0);
    EXPECT_EQ(ComStrStr("a", "a", nullptr), 0);
    EXPECT_EQ(position, 5);
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "?*";
    EXPECT_EQ(ComStrStr("text", (deep + "x").c_str(), &position), 0);
    // Each open form asks what comes behind it, twice: what is known by then must not be found out again.
    const std::string stars(2000, '*');
    EXPECT_EQ(ComStrStr(stars.c_str(), (deep.substr(0, 298) + "x").c_str(), &position), 1);
}

} // namespace
