// Names of files: paths taken apart and put together, lists of names, and names against patterns.
#include <array>

#include "platform/memory.h"
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using Room = std::array<char, 260>;

std::string split(const std::string& path) {
    char drive[3];
    Room directory, name, extension;
    ComSplitPath(path.c_str(), drive, directory.data(), name.data(), extension.data());
    return std::string(drive) + "|" + directory.data() + "|" + name.data() + "|" + extension.data();
}

std::string make(const char* drive, const char* directory, const char* name, const char* extension) {
    Room output;
    ComMakePath(output.data(), drive, directory, name, extension);
    return output.data();
}

TEST(Paths, SplitAtBackslashes) {
    // The last one is too long for a drive.
    std::istringstream rows(
        R"(C:\dir\sub\report.tar.gz C:|\dir\sub\|report|.tar.gz  my.dir\file.txt |my.dir\|file|.txt
        a.b.c\d |a.b.c\|d|  C: C:|||  .profile |||.profile  dir\ |dir\||  /tmp/x.txt ||/tmp/x|.txt
        log-12:30.txt ||log-12:30|.txt)");
    for (std::string path, parts; rows >> path >> parts;)
        EXPECT_EQ(split(path), parts);
    const std::string longest(259, 'a');
    EXPECT_EQ(split(""), "|||");
    EXPECT_EQ(split(longest), "||" + longest + "|");
    EXPECT_EQ(split(longest + "a"), "|||"); // its end is not seen
    EXPECT_EQ(split("dir\\" + std::string(300, 'a')), "|dir\\||");
    EXPECT_EQ(split(longest + "\\x"), "|" + longest + "||");
}

TEST(Paths, PutTogether) {
    EXPECT_EQ(make("C", "dir", "file", "txt"), "C:dir\\file.txt");
    EXPECT_EQ(make("C:", "\\dir\\", "file", ".txt"), "C:\\dir\\file.txt");
    EXPECT_EQ(make(nullptr, "/tmp/x", "file", nullptr), "/tmp/x/file");
    EXPECT_EQ(make(nullptr, nullptr, nullptr, nullptr), "");
    EXPECT_EQ(make(nullptr, nullptr, std::string(300, 'a').c_str(), nullptr), std::string(259, 'a'));
}

TEST(Paths, TheUsualRule) {
    const std::string tooLong = "/" + std::string(260, 'a'), noRoom(260, 'a');
    const std::pair<std::string, const char*> rows[] = {{"C:\\dir/sub\\a.tar.gz", "1C:\\dir/sub\\|a.tar.gz"},
                                                        {"/tmp/x", "1/tmp/|x"},
                                                        {"C:x", "1C:|x"},
                                                        {"dir/", "1dir/|"},
                                                        {"", "0-|-"},
                                                        {tooLong, "0-|-"},
                                                        {noRoom, "0-|-"}};
    for (const auto& [path, parts] : rows) {
        Room name{"-"}, directory{"-"};
        const int32_t result = ComStripFileName(path.c_str(), name.data(), directory.data());
        EXPECT_EQ(std::to_string(result) + directory.data() + "|" + name.data(), parts);
    }
    EXPECT_STREQ(_justname("C:\\dir/sub\\a.tar.gz"), "a.tar.gz");
}

TEST(Paths, Directories) {
    const std::filesystem::path home = std::filesystem::current_path();
    const test::Files files;
    ASSERT_EQ(ComSetCurrentDirectory(files.path("").c_str()), 1);
    for (const auto& [made, result] : {std::pair{"sub", 1}, {"sub", 0}, {"sub\\below", 1}, {"no\\where", 0}})
        EXPECT_EQ(ComCreateDirectory(made), result) << made;
    EXPECT_EQ(ComSetCurrentDirectory("sub\\below"), 1);
    Room path;
    const std::string expected = std::filesystem::canonical(".").string();
    EXPECT_EQ(ComGetCurrentDirectory(path.data()), static_cast<int32_t>(expected.size()));
    EXPECT_EQ(path.data(), expected);
    EXPECT_EQ(ComSetCurrentDirectory("nowhere"), -1);
    for (const std::string deep(200, 'd'); ComGetCurrentDirectory(path.data()) != -1;) {
        ASSERT_LT(std::filesystem::current_path().string().size(), 260U);
        ASSERT_EQ(ComCreateDirectory(deep.c_str()), 1);
        ASSERT_EQ(ComSetCurrentDirectory(deep.c_str()), 1);
    }
    std::filesystem::current_path(home);
}

/// All names of a list, each behind a blank; it is gone then.
std::string walk(FileList* list, const std::string& directory) {
    std::string names;
    char name[260];
    for (int32_t index = 0; ComGetFile(list, index, name) != 0; ++index)
        names.append(" ").append(name + (std::string(name).starts_with(directory) ? directory.size() : 0));
    EXPECT_EQ(ComFreeFileList(list), 0);
    return names;
}

class FileLists : public testing::Test {
protected:
    FileLists() {
        std::filesystem::create_directory(files.path("dir.txt"));
        std::filesystem::create_symlink(files.path("dir.txt"), files.path("link.txt"));
        for (const char* name :
             {"b.txt", "a.txt", "A.TXT", "a", ".hidden.txt", "dir.txt/below.txt", "dir.txt/x\\y"})
            files.make(name, "x");
    }
    FileList* list(const std::string& pattern) const {
        return ComAddFileList(nullptr, (here + pattern).c_str());
    }
    std::string found(const std::string& pattern) const { return walk(list(pattern), here); }
    test::Files files;
    std::string here = files.path("");
};

TEST_F(FileLists, FindFilesByTheirNames) {
    EXPECT_EQ(found("*.txt"), " a.txt b.txt"); // neither directory nor link to one
    EXPECT_EQ(found("?"), " a");
    EXPECT_EQ(found("*.*"), " A.TXT a a.txt b.txt");
    EXPECT_EQ(found("*a*t*t"), " a.txt");
    EXPECT_EQ(found(".h*"), " .hidden.txt");
    EXPECT_EQ(found("dir.txt\\*.txt"), " dir.txt\\below.txt");
    EXPECT_EQ(found("dir.txt\\*y"), " dir.txt/x\\y"); // with a backslash it would be another file
    for (const char* nothing : {"", "*.doc", "no/where/*", "[ab].txt"})
        EXPECT_EQ(list(nothing), nullptr) << nothing;
    const std::filesystem::path home = std::filesystem::current_path();
    std::filesystem::current_path(here);
    const std::string tooLong(5000, 'd'); // a directory that there cannot be is not the current one
    EXPECT_EQ(ComAddFileList(nullptr, (tooLong + "/*.txt").c_str()), nullptr);
    EXPECT_EQ(ComDeleteMultipleFiles((tooLong + "/*.txt").c_str()), 1);
    EXPECT_EQ(walk(ComAddFileList(nullptr, "*.txt"), "/"), " a.txt b.txt"); // not of the root directory
    std::filesystem::current_path(home);
}

TEST_F(FileLists, NameFilesThemselves) {
    const std::string fits(256, 'a'), names = "/d\xFF" + fits + "\xFF" + fits + "a"; // that fits no buffer
    EXPECT_EQ(found("q\xFFx\xFF\xFFy"), " q/x q/ q/y");
    EXPECT_EQ(walk(ComAddFileList(nullptr, "\xFFx"), ""), " x");
    EXPECT_EQ(walk(ComAddFileList(nullptr, names.c_str()), ""), " /d/" + fits);
}

TEST_F(FileLists, GrowAndEnd) {
    char name[260] = "kept";
    FileList* all = list("*.txt");
    ASSERT_EQ(ComGetListCount(all), 2);
    EXPECT_EQ(ComAddFileList(all, (here + "*.none").c_str()), all);
    all = ComAddFileList(all, (here + "*.TXT").c_str());
    EXPECT_EQ(ComGetListCount(all), 3);
    EXPECT_EQ(ComGetFile(all, -1, name), 0);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(ComGetFile_NoFree(all, 2, name), 1);
    EXPECT_EQ(name, here + "A.TXT");
    EXPECT_EQ(ComGetFile_NoFree(all, 3, name), 0); // frees it, its name notwithstanding
    EXPECT_EQ(ComGetListCount(all) + ComGetFile(all, 0, name) + ComFreeFileList(all), 0);
    for (int i = 0; i < 1100; ++i)
        files.make("n" + std::to_string(i), "");
    all = list("n*");
    EXPECT_EQ(ComGetListCount(all), 1001);
    EXPECT_EQ(ComFreeFileList(all), 1);
    EXPECT_EQ(ComDeleteMultipleFiles((here + "n*").c_str()), 1); // all of them all the same
    EXPECT_EQ(list("n*"), nullptr);
}

TEST(FileStrings, BelongToThePort) {
    test::BarePort port{3};
    std::string name(6000, '?');
    for (int32_t round = 0; round < 2; ++round) {
        for (uint32_t i = 0; i < 1000; ++i)
            ASSERT_EQ(ComAddFileString(3, std::string(std::size_t{5} * i, 'n').c_str(), i * 4'000'000U), 1);
        EXPECT_EQ(ComAddFileString(3, "one too many", 0), -1);
        EXPECT_EQ(ComGetFileStringCount(3), 1000);
        EXPECT_EQ(ComGetFileString(3, 999, name.data()), 1);
        EXPECT_EQ(name.c_str(), std::string(4995, 'n'));
        EXPECT_EQ(ComGetFileStringSize(3, 999), static_cast<int32_t>(999 * 4'000'000U));
        for (const int32_t index : {-1, 1000, INT32_MAX}) {
            EXPECT_EQ(ComGetFileString(3, index, name.data()), -1);
            EXPECT_EQ(ComGetFileStringSize(3, index), -1);
        }
        EXPECT_EQ(round == 0 ? ComFreeFileString(3) : ComFreeAll(3), 1); // and with all the list
        EXPECT_EQ(ComGetFileStringCount(3), 0);
        EXPECT_EQ(ComGetFileString(3, 0, name.data()), -1);
    }
    for (const int32_t allocations : {0, 1}) { // the table cannot be had, the name cannot
        memory::failAllocations(allocations, 1);
        EXPECT_EQ(ComAddFileString(3, "x", 1), -1);
        EXPECT_EQ(ComGetFileStringCount(3), 0);
    }
    EXPECT_EQ(ComAddFileString(3, "x", 1), 1);
}

TEST(FileMatch, ByItsSteps) {
    // Pattern, name and result; no second look, a star that reaches to the next text only, a last question mark
    // that is one character, 15 segments, and 14 with one for beginning with a text.
    std::istringstream rows(
        "*.txt a.txt 1  *.txt a.txt.old 0  ?bc abc 1  ??? ab 0  abc abcd 0  * x 1  "
        "*ab abab 0  a*b*c aXbYc 1  ab* a 0  a*b?d axbcxd 0  a? abc 0  *? abc 1  "
        "?*?*?*?*?*?*?* 1234567 1  ?*?*?*?*?*?*?*? 12345678 -1  a*?*?*?*?*?*?* a123456 -1");
    std::string pattern, name;
    for (int32_t result; rows >> pattern >> name >> result;)
        EXPECT_EQ(ComCheckFileMatch(pattern.c_str(), name.c_str()), result) << pattern << " " << name;
    EXPECT_EQ(ComCheckFileMatch("", "a"), 0);
    EXPECT_EQ(ComCheckFileMatch("*", ""), 1);
}

} // namespace
} // namespace brisolt
