// Lists of files, the list that a port keeps, and names against patterns.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "brisolt.h"
#include "platform/memory.h"
#include "port/tracked_memory.h"
#include "support/bare_port.h"
#include "transfer/files.h"

namespace brisolt {
namespace {

using Names = std::vector<std::string>;

/// All names of a list, which is gone then.
Names walk(FileList* list) {
    Names names;
    char name[260];
    for (int32_t index = 0; ComGetFile(list, index, name) != 0; ++index)
        names.emplace_back(name);
    EXPECT_EQ(ComFreeFileList(list), 0);
    return names;
}

class FileLists : public testing::Test {
protected:
    FileLists() {
        std::filesystem::create_directory(files.path("dir.txt"));
        std::filesystem::create_symlink(files.path("dir.txt"), files.path("link.txt"));
        for (const char* name : {"b.txt", "a.txt", "A.TXT", "a", ".hidden.txt", "dir.txt/below.txt"})
            files.make(name, "x");
    }
    Names found(const std::string& pattern) const { return walk(ComAddFileList(nullptr, pattern.c_str())); }
    Names in(const std::string& directory, Names names) const {
        for (std::string& name : names)
            name.insert(0, directory);
        return names;
    }
    test::Files files;
    std::string here = files.path("");
};

TEST_F(FileLists, FindFilesByTheirNames) {
    EXPECT_EQ(found(here + "*.txt"), in(here, {"a.txt", "b.txt"})); // neither directory nor link to one
    EXPECT_EQ(found(here + "?"), in(here, {"a"}));
    EXPECT_EQ(found(here + "*.*"), in(here, {"A.TXT", "a", "a.txt", "b.txt"}));
    EXPECT_EQ(found(here + "*a*t*t"), in(here, {"a.txt"}));
    EXPECT_EQ(found(here + ".h*"), in(here, {".hidden.txt"}));
    EXPECT_EQ(found(here + "dir.txt\\*.txt"), in(here + "dir.txt\\", {"below.txt"}));
    for (const char* nothing : {"", "*.doc", "no/where/*", "[ab].txt"})
        EXPECT_EQ(ComAddFileList(nullptr, (here + nothing).c_str()), nullptr) << nothing;

    const std::filesystem::path home = std::filesystem::current_path();
    std::filesystem::current_path(here);
    EXPECT_EQ(found("*.txt"), (Names{"a.txt", "b.txt"})); // not of the root directory
    std::filesystem::current_path(home);
}

TEST_F(FileLists, NameFilesThemselves) {
    EXPECT_EQ(found("/tmp/q\xFFx\xFF\xFFy"), (Names{"/tmp/q/x", "/tmp/q/y"}));
    EXPECT_EQ(found("\xFFx"), Names{"x"});
    EXPECT_EQ(found("/d\xFF" + std::string(256, 'a') + "\xFF" + std::string(257, 'a')),
              Names{"/d/" + std::string(256, 'a')}); // the other fits no buffer
}

TEST_F(FileLists, GrowAndEnd) {
    char name[260] = "kept";
    FileList* list = ComAddFileList(nullptr, (here + "*.txt").c_str());
    ASSERT_EQ(ComGetListCount(list), 2);
    EXPECT_EQ(ComAddFileList(list, (here + "*.none").c_str()), list);
    list = ComAddFileList(list, (here + "*.TXT").c_str());
    EXPECT_EQ(ComGetListCount(list), 3);
    EXPECT_EQ(ComGetFile(list, -1, name), 0);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(ComGetFile_NoFree(list, 2, name), 1);
    EXPECT_EQ(name, here + "A.TXT");
    EXPECT_EQ(ComGetFile_NoFree(list, 3, name), 0); // frees it, its name notwithstanding
    EXPECT_EQ(ComGetListCount(list), 0);
    EXPECT_EQ(ComGetFile(list, 0, name), 0);
    EXPECT_EQ(ComFreeFileList(list), 0);
    EXPECT_EQ(ComGetListCount(nullptr), 0);

    for (int i = 0; i < 1100; ++i)
        files.make("n" + std::to_string(i), "");
    list = ComAddFileList(nullptr, (here + "n*").c_str());
    EXPECT_EQ(ComGetListCount(list), 1001);
    EXPECT_EQ(ComFreeFileList(list), 1);
    EXPECT_EQ(ComDeleteMultipleFiles((here + "n*").c_str()), 1); // all of them all the same
    EXPECT_EQ(ComAddFileList(nullptr, (here + "n*").c_str()), nullptr);
}

TEST(FileStrings, BelongToThePort) {
    test::BarePort port{3};
    char name[260] = "kept";
    EXPECT_EQ(ComGetFileString(3, 0, name), -1);
    for (int32_t round = 0; round < 2; ++round) {
        for (uint32_t i = 0; i < 1000; ++i)
            ASSERT_EQ(ComAddFileString(3, ("name " + std::to_string(i)).c_str(), i * 4'000'000U), 1);
        EXPECT_EQ(ComAddFileString(3, "one too many", 0), -1);
        EXPECT_EQ(ComGetFileStringCount(3), 1000);
        EXPECT_EQ(ComGetFileString(3, 999, name), 1);
        EXPECT_STREQ(name, "name 999");
        EXPECT_EQ(ComGetFileStringSize(3, 999), static_cast<int32_t>(999 * 4'000'000U));
        for (const int32_t index : {-1, 1000, INT32_MAX}) {
            EXPECT_EQ(ComGetFileString(3, index, name), -1);
            EXPECT_EQ(ComGetFileStringSize(3, index), -1);
        }
        EXPECT_EQ(ComFreeFileString(3), 1);
        EXPECT_EQ(ComGetFileStringCount(3), 0);
    }
    EXPECT_EQ(tracked::outstanding(3), 2U); // the two tables
    EXPECT_EQ(ComAddFileString(3, std::string(260, 'a').c_str(), 0), -1);
    EXPECT_EQ(ComAddFileString(3, std::string(259, 'a').c_str(), 7), 1);
    EXPECT_EQ(ComFreeAll(3), 1); // and with it the list
    EXPECT_EQ(ComGetFileString(3, 0, name), -1);
    for (const int32_t allocations : {0, 1}) { // the table cannot be had, the name cannot
        memory::failAllocations(allocations, 1);
        EXPECT_EQ(ComAddFileString(3, "x", 1), -1);
        EXPECT_EQ(ComGetFileStringCount(3), 0);
    }
    EXPECT_EQ(ComAddFileString(3, "x", 1), 1);
    EXPECT_EQ(ComAddFileString(4, "x", 1), -1) << "no such port is open";
}

TEST(FileMatch, ByItsSteps) {
    const struct {
        const char *pattern, *name;
        int32_t result;
    } cases[] = {
        {"*.txt", "a.txt", 1},
        {"*.txt", "a.txt.old", 0},
        {"?bc", "abc", 1},
        {"???", "ab", 0},
        {"abc", "abcd", 0},
        {"", "a", 0},
        {"*", "", 1},
        {"*ab", "abab", 0}, // no second look
        {"a*b*c", "aXbYc", 1},
        {"ab*", "a", 0},
        {"a*b?d", "axbcxd", 0}, // the star does not reach beyond the b
        {"a?", "abc", 0},       // a last question mark is one character
        {"*?", "abc", 1},
        {"?*?*?*?*?*?*?*", "1234567", 1},
        {"?*?*?*?*?*?*?*?", "12345678", -1}, // 15 segments
        {"a*?*?*?*?*?*?*", "a123456", -1},   // 14, and one for beginning with a text
    };
    for (const auto& each : cases)
        EXPECT_EQ(ComCheckFileMatch(each.pattern, each.name), each.result)
            << each.pattern << " " << each.name;
    EXPECT_EQ(ComCheckFileMatch(nullptr, "a"), -1);
}

} // namespace
} // namespace brisolt
