// Paths taken apart and put together, and directories.
#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "brisolt.h"
#include "transfer/files.h"

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
    const struct {
        const char *path, *parts;
    } cases[] = {
        {"C:\\dir\\sub\\report.tar.gz", "C:|\\dir\\sub\\|report|.tar.gz"},
        {"my.dir\\file.txt", "|my.dir\\|file|.txt"},
        {"a.b.c\\d", "|a.b.c\\|d|"},
        {"C:", "C:|||"},
        {".profile", "|||.profile"},
        {"dir\\", "|dir\\||"},
        {"/tmp/x.txt", "||/tmp/x|.txt"},
        {"", "|||"},
        {"log-12:30.txt", "||log-12:30|.txt"}, // too long for a drive
    };
    for (const auto& each : cases)
        EXPECT_EQ(split(each.path), each.parts) << each.path;

    const std::string longest(259, 'a');
    EXPECT_EQ(split(longest), "||" + longest + "|");
    EXPECT_EQ(split(longest + "a"), "|||"); // its end is not seen
    EXPECT_EQ(split("dir\\" + std::string(300, 'a')), "|dir\\||");
    EXPECT_EQ(split(longest + "\\x"), "|" + longest + "||");
    ComSplitPath("x", nullptr, nullptr, nullptr, nullptr);
}

TEST(Paths, PutTogether) {
    EXPECT_EQ(make("C", "dir", "file", "txt"), "C:dir\\file.txt");
    EXPECT_EQ(make("C:", "\\dir\\", "file", ".txt"), "C:\\dir\\file.txt");
    EXPECT_EQ(make(nullptr, "/tmp/x", "file", nullptr), "/tmp/x/file");
    EXPECT_EQ(make(nullptr, nullptr, nullptr, nullptr), "");
    EXPECT_EQ(make(nullptr, nullptr, std::string(300, 'a').c_str(), nullptr), std::string(259, 'a'));
}

TEST(Paths, TheUsualRule) {
    const auto strip = [](const std::string& path) {
        Room name, directory;
        const int32_t result = ComStripFileName(path.c_str(), name.data(), directory.data());
        return result == 1 ? std::string(directory.data()) + "|" + name.data() : std::to_string(result);
    };
    EXPECT_EQ(strip("C:\\dir/sub\\a.tar.gz"), "C:\\dir/sub\\|a.tar.gz");
    EXPECT_EQ(strip("/tmp/x"), "/tmp/|x");
    EXPECT_EQ(strip("C:x"), "C:|x");
    EXPECT_EQ(strip("dir/"), "dir/|");
    EXPECT_EQ(strip("/" + std::string(260, 'a')), "0");
    EXPECT_EQ(strip(std::string(260, 'a')), "0"); // does not fit
    const char* path = "C:\\dir\\file.txt";
    EXPECT_EQ(_justname(path) - path, 7);
}

TEST(Paths, Directories) {
    const std::filesystem::path home = std::filesystem::current_path();
    const test::Files files;
    ASSERT_EQ(ComSetCurrentDirectory(files.path("").c_str()), 1);
    EXPECT_EQ(ComCreateDirectory("sub"), 1);
    EXPECT_EQ(ComCreateDirectory("sub"), 0);
    EXPECT_EQ(ComCreateDirectory("sub\\below"), 1);
    EXPECT_EQ(ComCreateDirectory("no\\where"), 0);
    EXPECT_EQ(ComSetCurrentDirectory("sub\\below"), 1);
    Room path;
    const std::string expected = std::filesystem::canonical(".").string();
    EXPECT_EQ(ComGetCurrentDirectory(path.data()), static_cast<int32_t>(expected.size()));
    EXPECT_EQ(path.data(), expected);
    EXPECT_EQ(ComSetCurrentDirectory("nowhere"), -1);

    const std::string deep(200, 'd');
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(ComCreateDirectory(deep.c_str()), 1);
        ASSERT_EQ(ComSetCurrentDirectory(deep.c_str()), 1);
    }
    EXPECT_EQ(ComGetCurrentDirectory(path.data()), -1); // longer than the room
    std::filesystem::current_path(home);
}

} // namespace
} // namespace brisolt
