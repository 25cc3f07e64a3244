// Single keys of a profile: how text is read, what a write leaves as it was, and values in all their notations.
#include <random>

#include "params/profile_on_disk.h"
#include "platform/profile.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

using Results = std::vector<int64_t>;

TEST(ProfileText, ReadsAsPeopleWriteIt) {
    const ProfileOnDisk profile("\xEF\xBB\xBF[Line]\r\nPortDelayInterval=33\n"
                                "  port \t=  COM7 ; not a comment \r\n;Speed=1\nno equals sign\n"
                                "quoted=\"  two words \"\nsingle='x'\nhalf=\"x\nempty=\nequal=a=b\n"
                                "twice=1\ntwice=2\n [ Other ] ; with a remark\nSpeed=2\n"
                                "[unfinished\nSpeed=3\n[LINE]\nlast=\tend");
    // Section, key and value.
    std::istringstream rows(
        " line | PORT|COM7 ; not a comment\nLine|portdelayinterval|33\nLine|Speed|<absent>\n"
        "Line|quoted|  two words \nLine|single|x\nLine|half|\"x\nLine|empty|\n"
        "Line|equal|a=b\nLine|twice|1\nOther|speed|2\nLine|last|end\nLine||<absent>\n"
        "unfinished|Speed|<absent>\n");
    for (std::string section, key, value;
         std::getline(rows, section, '|') && std::getline(rows, key, '|') && std::getline(rows, value);)
        EXPECT_EQ(profile.value(section.c_str(), key.c_str()), value) << section << " " << key;

    char buffer[8] = "0123456";
    const char* const path = profile.path();
    EXPECT_EQ(ComGetProfString("Line", "equal", "", buffer, 3, path), 2);
    EXPECT_STREQ(buffer, "a=");
    EXPECT_EQ(buffer[3], '3') << "nothing behind the terminator";
    EXPECT_EQ(ComGetProfString("Line", "none", "default", buffer, sizeof buffer, path), 7);
    EXPECT_EQ(ComGetProfString("Line", "equal", "", buffer, 1, path), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(ComGetProfString("Line", "equal", "", buffer, 0, path), 0);
}

TEST(ProfileText, WritesChangeNothingElse) {
    const ProfileOnDisk profile("; my settings\r\n\r\n[Modem] ; the old one\r\nSpeed = 2400   \r\n"
                                "  ; about the port\r\nPORT=COM1\r\ngone=1\r\n\tname\t=\t\"old\"\r\n"
                                "Gone=2\r\n\r\n; of the next\r\n[Foreign]\r\nSpeed=1\nwithout an end");
    const char* const path = profile.path();
    EXPECT_EQ(ComWriteProfLong("modem", "speed", 19200, path), 1);
    EXPECT_EQ(ComWriteProfString("Modem", "Name", "new", path), 1);
    for (const char* none : {"GONE", "never there"})
        EXPECT_EQ(ComWriteProfString("Modem", none, nullptr, path), 1) << none;
    EXPECT_EQ(ComWriteProfBool("Modem", "Added", 7, path), 1);
    EXPECT_EQ(ComWriteProfChar("Fresh", "Escape", 27, path), 1);
    EXPECT_EQ(ComWriteProfInt("Fresh", "Least", INT32_MIN, path), 1);
    EXPECT_EQ(profile.text(), "; my settings\r\n\r\n[Modem] ; the old one\r\nSpeed = 19200   \r\n"
                              "  ; about the port\r\nPORT=COM1\r\n\tname\t=\tnew\r\nAdded=1\r\n"
                              "\r\n; of the next\r\n[Foreign]\r\nSpeed=1\nwithout an end\n"
                              "\n[Fresh]\nEscape=0x1b\nLeast=-2147483648\n");
    profile.put("[Modem]"); // its only line lacks its end
    EXPECT_EQ(ComWriteProfInt("MODEM", "a", 1, path), 1);
    EXPECT_EQ(profile.text(), "[Modem]\na=1\n");
}

TEST(ProfileText, WhatIsStoredReadsBackOrIsRefused) {
    const ProfileOnDisk profile("[s]\nk=kept\n");
    for (const char* text :
         {"plain", "", " outer blanks\t", "\"quoted\"", "'quoted'", "\"\"", "\"", "\"half", "; no comment",
          "[no section]", "a = b", "AT&F&C1&D2|", "~\xE9\xFF", "it's", " "}) {
        EXPECT_EQ(ComWriteProfString("s", "text", text, profile.path()), 1) << text;
        EXPECT_EQ(profile.value("s", "text"), text);
        EXPECT_EQ(profile.value("s", "k"), "kept");
    }
    const std::string before = profile.text();
    for (const char* text : {"two\nlines", "return\r"})
        EXPECT_EQ(ComWriteProfString("s", "k", text, profile.path()), 0);
    for (const char* key : {" \t", "a=b", ";k", " [k", "k\nx"})
        EXPECT_EQ(ComWriteProfString("s", key, "x", profile.path()), 0) << key;
    for (const char* section : {"a]b", "s\n"})
        EXPECT_EQ(ComWriteProfString(section, "k", "x", profile.path()), 0) << section;
    EXPECT_EQ(ComWriteProfInt("s", "k", 1, ""), 0);
    EXPECT_EQ(profile.text(), before);
}

TEST(ProfileText, ValuesInAllNotations) {
    // A text, and what it is as a boolean, an integer, a long and a character.
    std::istringstream rows(
        "1 1 1 1 1  YES 1 0 0 0  On 1 0 0 0  true 1 0 0 0  0 0 0 0 0  fALSE 0 0 0 0  off 0 0 0 0  no 0 0 0 0 "
        "'' 65535 0 0 0  maybe 65535 0 0 0  27 65535 27 27 27  033 65535 33 27 27  0x1B 65535 0 27 27 "
        "0x 65535 0 0 0  089 65535 89 0 0  12abc 65535 12 12 12  256 65535 256 256 0  -5 65535 -5 -5 0 "
        "--6 65535 0 0 0  4294967295 65535 2147483647 -1 0  99999999999999999999 65535 2147483647 -1 0 "
        "-99999999999 65535 -2147483648 -1 0  ^[ 65535 0 0 27  ^_ 65535 0 0 31  ^a 65535 0 0 0  ^ 65535 0 0 "
        "0 "
        "^AB 65535 0 0 0  \\v 65535 0 0 11  \\e 65535 0 0 101  \\ 65535 0 0 0  x 65535 0 0 120 "
        "\xE9 65535 0 0 233  xy 65535 0 0 0");
    const ProfileOnDisk profile;
    const char* const path = profile.path();
    std::string text;
    for (int32_t boolean, integer, prefixed, character;
         rows >> text >> boolean >> integer >> prefixed >> character;) {
        profile.put("[s]\nk=" + text);
        EXPECT_EQ((Results{ComGetProfBool("s", "k", 5, path), ComGetProfInt("s", "k", 5, path),
                           ComGetProfLong("s", "k", 5, path), ComGetProfChar("s", "k", 5, path)}),
                  (Results{boolean, integer, prefixed, character}))
            << text;
    }
    EXPECT_TRUE(rows.eof());
    EXPECT_EQ(ComGetProfBool("s", "none", -9, path), 1);
    EXPECT_EQ(ComGetProfChar("s", "none", 200, path), 200);
    for (int32_t character = 0; character < 256; character += 5) {
        EXPECT_EQ(ComWriteProfChar("s", "c", static_cast<uint8_t>(character), path), 1);
        EXPECT_EQ(ComGetProfChar("s", "c", 1, path), character);
    }
}

/// Any bytes are a profile: a key written to them is found, and no other key changes.
TEST(ProfileText, RandomBytesAreReadAndWrittenWithoutHarm) {
    std::mt19937 random(20);
    const std::string alphabet("[]==;\"'\r\n\n \tab[a]\na=\0\xEF\xBB\xBF", 24), names[] = {"a", "b", "ab"};
    const auto pick = [&](std::size_t count) { return random() % count; };
    for (int32_t round = 0; round < 3000; ++round) {
        std::string text(pick(80), '\0');
        for (char& byte : text)
            byte = round % 10 == 0 ? static_cast<char>(random()) : alphabet[pick(alphabet.size())];
        const std::string section = names[pick(3)], key = names[pick(3)];
        std::optional<std::string> value = alphabet.substr(pick(8), pick(5));
        std::erase_if(*value, [](char c) { return c == '\r' || c == '\n'; });
        if (pick(3) == 0)
            value.reset();
        std::string after = text;
        profile::apply(after, section, {key, value});
        for (const std::string& where : names)
            for (const std::string& other : names) {
                const auto before = profile::find(text, where, other);
                const auto expected = where == section && other == key ? value : before;
                ASSERT_EQ(profile::find(after, where, other), expected) << text << "\n---\n" << after;
            }
    }
}

TEST(ProfileText, LargeProfiles) {
    const std::string value(400, 'v');
    std::string text;
    for (int32_t number = 0; text.size() < 10'000'000; ++number)
        text += (number % 50 == 0 ? "[Section" + std::to_string(number) + "]\r\n" : "") + "key" +
                std::to_string(number) + "=" + value + "\r\n";
    const ProfileOnDisk profile(text + "[Line]\r\nSpeed=300\r\n");
    EXPECT_EQ(ComWriteProfInt("line", "speed", 2400, profile.path()), 1);
    EXPECT_EQ(ComWriteProfInt("Line", "New", 1, profile.path()), 1);
    EXPECT_EQ(profile.text(), text + "[Line]\r\nSpeed=2400\r\nNew=1\r\n");
    std::filesystem::resize_file(profile.path(), 65U << 20); // too large to be one: left alone
    EXPECT_EQ(ComGetProfInt("Line", "Speed", 3, profile.path()), 3);
    EXPECT_EQ(ComWriteProfInt("Line", "Speed", 3, profile.path()), 0);
}

} // namespace
