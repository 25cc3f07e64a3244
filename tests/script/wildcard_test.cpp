// The matcher beside a plain transcription of its rules, and what people rely on.
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "api/brisolt/scripting.h"

namespace {

/// The rules, step by step, with offsets instead of pointers.
struct Plain {
    std::string text, pattern;
    int wild = 0;

    char textAt(std::size_t at) const { return at < text.size() ? text[at] : '\0'; }
    char patternAt(std::size_t at) const { return at < pattern.size() ? pattern[at] : '\0'; }

    std::size_t matchAt(std::size_t start, std::size_t p) {
        std::size_t s = start;
        bool seenLiteral = false;
        if (patternAt(p) == 0)
            return 0;
        for (;;) {
            if (patternAt(p) == '?') {
                wild = 1;
                if (patternAt(p + 1) == '*') {
                    p += 2;
                    if (patternAt(p) == 0)
                        return text.size() - start;
                    if (matchAt(s, p) == 0)
                        return textAt(s) == 0 ? 0 : s - start + 1;
                }
                if (textAt(s) == 0)
                    return 0;
                ++s;
                ++p;
                if (patternAt(p) == 0)
                    return s - start;
            }
            if (patternAt(p + 1) == '*') {
                if (seenLiteral)
                    wild = 1;
                if (textAt(s) == patternAt(p)) {
                    seenLiteral = true;
                    while (textAt(s) == patternAt(p)) {
                        wild = 1;
                        ++s;
                    }
                }
                p += 2;
            } else {
                if (textAt(s) != patternAt(p))
                    return 0;
                ++s;
                ++p;
                seenLiteral = true;
            }
            if (patternAt(p) == 0)
                return s - start;
        }
    }
    int search() {
        int firstWild = -1;
        for (std::size_t at = 0; textAt(at) != 0; ++at) {
            if (matchAt(at, 0) != 0)
                return wild > 0 && firstWild >= 0 ? firstWild : static_cast<int>(at);
            if (wild > 0 && firstWild < 0)
                firstWild = static_cast<int>(at);
        }
        return -1;
    }
};

int found(const std::string& text, const std::string& pattern) {
    int32_t position = -77;
    const int32_t result = ComStrStr(text.c_str(), pattern.c_str(), &position);
    EXPECT_EQ(result == 0, position == -77) << "nothing found leaves the position alone";
    return result == 1 ? position : -1;
}

TEST(Wildcards, AgreeWithTheirRulesStepByStep) {
    std::mt19937 random(20261125);
    const auto word = [&random](const std::string& letters, std::size_t longest) {
        std::string text(random() % (longest + 1), ' ');
        for (char& letter : text)
            letter = letters[random() % letters.size()];
        return text;
    };
    int hits = 0;
    for (int i = 0; i < 60000; ++i) {
        const std::string text = word("ab?*", 12);
        const std::string pattern = word("ab??***", 9);
        const int expected = Plain{text, pattern}.search();
        ASSERT_EQ(found(text, pattern), expected) << "text " << text << " pattern " << pattern;
        hits += expected >= 0 ? 1 : 0;
    }
    EXPECT_GT(hits, 10000);
    EXPECT_LT(hits, 50000);
}

TEST(Wildcards, DoWhatTheirDescriptionSays) {
    EXPECT_EQ(found("xaaab", "a*b"), 1);
    EXPECT_EQ(found("ABCD", "AB?"), 0);
    EXPECT_EQ(found("ABxAZC", "A?C"), 0) << "the first attempt had met the wildcard";
    EXPECT_EQ(found("x?y", "??"), 0);
    EXPECT_EQ(found("xyz", "??"), -1);
    EXPECT_EQ(found("anything", ""), -1);
    EXPECT_EQ(found("", "a"), -1);
    EXPECT_EQ(found("login: ", "gin"), 2);
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
