// Files that are open: who counts as having one open, what that forbids to others, and files by handle.

#include <fcntl.h>
#include <sys/stat.h>

#include "files/hindrances.h"
#include "platform/file.h"
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using test::Holder;

class OpenFiles : public testing::Test {
protected:
    /// What the two tests tell of a file: free, readable by others only, or not there.
    static std::string seen(const std::string& file) {
        const bool exclusive = ComFileExist(file.c_str()) == 1,
                   shared = ComFileExist_Read_Shared(file.c_str()) == 1;
        return std::string(exclusive ? "free" : "-") + (shared ? " shared" : " -");
    }
    static std::string read(int32_t handle, int32_t count) {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        bytes.resize(static_cast<std::size_t>(ComReadFile(3, handle, bytes.data(), count)));
        return bytes;
    }
    static int32_t write(int32_t handle, const std::string& bytes) {
        return ComWriteFile(3, handle, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    test::BarePort port{3};
    test::Files files;
    std::string path = files.make("file", "12345");
    const char* name = path.c_str();
};

TEST_F(OpenFiles, AnotherProcessHoldsAFile) {
    const std::string link = files.path("link");
    std::filesystem::create_symlink(path, link);
    for (const std::string how : {"<", ">>", "<>"}) {
        {
            const Holder holder(how, path);
            EXPECT_EQ(ComFileSize(name), how == "<" ? 5 : 0) << how;
            for (const std::string& either : {path, link}) {
                EXPECT_EQ(seen(either), "- shared") << how;
                EXPECT_EQ(ComDeleteFile(either.c_str()), 0) << how;
            }
        }
        EXPECT_EQ(seen(path) + seen(link), "free sharedfree shared") << how;
    }
    EXPECT_EQ(ComDeleteFile(link.c_str()), 1);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    EXPECT_EQ(files.bytes("file"), "12345") << "a link is deleted alone";
    EXPECT_EQ(ComDeleteFile(name), 1);
    EXPECT_EQ(seen(path), "- -");
}

TEST_F(OpenFiles, ThisProgramHoldsAFile) {
    {
        std::ifstream own(path); // past the library
        EXPECT_EQ(seen(path), "- shared");
        EXPECT_EQ(ComDeleteFile(name), 0);
    }
    const int32_t reader = ComOpenReadFile(3, name), second = ComOpenReadFile(3, name);
    ASSERT_TRUE(reader > 0 && second > 0);
    EXPECT_EQ(ComOpenWriteFile(3, name), 0); // they deny writing
    EXPECT_EQ(ComSetDebugFile(3, name, "T"), -2);
    ComCloseFile(3, reader);
    EXPECT_EQ(seen(path), "- shared");
    ComCloseFile(3, second);
    EXPECT_EQ(seen(path), "free shared");

    const int32_t writer = ComOpenWriteFile(3, name), other = ComOpenWriteFile(3, name);
    ASSERT_TRUE(writer > 0 && other > 0); // these two share everything
    EXPECT_EQ(ComOpenReadFile(3, name), 0);
    EXPECT_EQ(ComFileSize(name), 0);
    ComCloseFile(3, writer);
    ComCloseFile(3, other);
    EXPECT_EQ(ComDeleteFile(name), 1);
}

TEST_F(OpenFiles, WhatIsNoFileIsNeitherFoundNorTouched) {
    const std::string directory = files.path("directory"), dangling = files.path("dangling"),
                      pipe = files.path("pipe");
    std::filesystem::create_directory(directory);
    std::filesystem::create_symlink(files.path("nowhere"), dangling);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    for (const std::string& odd : {directory, dangling, pipe, std::string("/dev/null"), std::string()}) {
        EXPECT_EQ(seen(odd), "- -") << odd;
        EXPECT_EQ(ComFileSize(odd.c_str()), 0);
        EXPECT_EQ(ComDeleteFile(odd.c_str()), 0);
    }
    chmod(name, 0444);
    EXPECT_EQ(seen(path), "- shared"); // for the superuser, too
    EXPECT_EQ(ComDeleteFile(name), 0);

    // Somebody waits in the pipe for a reader: he must not be woken.
    test::PeerProcess waiting("/bin/sh", {"-c", "echo ready; echo woken >'" + pipe + "'; echo woken"});
    ASSERT_EQ(waiting.readLine(), "ready");
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(seen(pipe), "- -");
    EXPECT_EQ(waiting.readLine(std::chrono::milliseconds(100)), std::nullopt);
}

TEST_F(OpenFiles, TestsDoNotStandInEachOthersWay) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 300; ++round)
                EXPECT_EQ(seen(path), "free shared");
        });
}

// Each open of theirs may fall into a test of ours; it ends no program and fails nobody.
TEST_F(OpenFiles, OthersOpenAndCloseAsFastAsTheyCan) {
    const auto opening = [this](const char* how) {
        const std::string loop = "while true; do : " + std::string(how) + "'" + path + "'; done";
        return test::PeerProcess("/bin/sh", {"-ec", "echo on; " + loop});
    };
    test::PeerProcess others[] = {opening("<"), opening(">>")};
    for (auto& other : others)
        ASSERT_EQ(other.readLine(), "on");
    for (int round = 0; round < 3000; ++round) {
        ComFileExist(name);
        ASSERT_EQ(ComFileExist_Read_Shared(name), 1);
        ASSERT_TRUE(file::Appender(name, file::Sharing::all, file::Missing::refuse));
    }
    for (auto& other : others)
        EXPECT_EQ(other.wait(std::chrono::milliseconds(50)), -1) << "it ended";
}

TEST_F(OpenFiles, BackslashesStreamsAndLargeFiles) {
    std::filesystem::create_directory(files.path("sub"));
    files.make("sub/below", "abc");
    EXPECT_EQ(seen(files.path("sub\\below")), "free shared");

    const timespec times[2] = {{1000, 0}, {1234567890, 0}};
    utimensat(AT_FDCWD, name, times, 0);
    EXPECT_EQ(ComGetmtime(name), 1234567890);

    FILE* stream = std::fopen(name, "r+");
    std::fseek(stream, 2, SEEK_SET);
    EXPECT_EQ(_getfilesize(stream), 5);
    EXPECT_EQ(std::fgetc(stream), '3');
    std::fclose(stream);
    std::filesystem::resize_file(path, 3'000'000'000);
    EXPECT_EQ(ComFileSize(name), INT32_MAX);
}

TEST_F(OpenFiles, HandlesAreAtTheEndOnceAndThenWhereTheyArePut) {
    const int32_t handle = ComOpenWriteFile(3, name);
    ASSERT_GT(handle, 0);
    EXPECT_EQ(write(handle, "67"), 2);
    EXPECT_EQ(ComSetFilePointer(3, handle, 1), 1);
    EXPECT_EQ(write(handle, "bc"), 2);
    EXPECT_EQ(read(handle, 10), "4567");
    EXPECT_EQ(read(handle, 10), "");
    EXPECT_EQ(ComSetFilePointer(3, handle, 20), 20); // beyond the end is allowed
    EXPECT_EQ(ComSetFilePointer(3, handle, -1), -1);
    EXPECT_EQ(ComCloseFile(3, handle), 1);
    EXPECT_EQ(files.bytes("file"), "1bc4567");

    const int32_t reader = ComOpenReadFile(3, name), full = ComOpenWriteFile(3, "/dev/full"),
                  fresh = ComOpenWriteFile(3, files.path("fresh").c_str());
    EXPECT_EQ(read(reader, 3), "1bc");
    EXPECT_EQ(write(reader, "x"), 0);
    EXPECT_EQ(write(full, "x"), 0);
    EXPECT_EQ(write(fresh, "new"), 3);
    for (const int32_t open : {reader, full, fresh}) {
        EXPECT_GT(open, 0);
        EXPECT_EQ(ComCloseFile(3, open), 1);
    }
    EXPECT_EQ(files.bytes("fresh"), "new");

    char buffer[4] = "";
    const int32_t next = ComOpenReadFile(3, name);
    EXPECT_EQ(ComReadFile(3, next, buffer, -1), -1);
    for (const int32_t gone : {handle, 0, -1, 12345678}) { // a handle kept too long reaches no other file
        EXPECT_EQ(ComReadFile(3, gone, buffer, 4), 0);
        EXPECT_EQ(ComWriteFile(3, gone, buffer, 4), 0);
        EXPECT_EQ(ComSetFilePointer(3, gone, 0), -1);
        EXPECT_EQ(ComCloseFile(3, gone), 1);
    }
    EXPECT_EQ(read(next, 10), "1bc4567");
    EXPECT_EQ(ComCloseFile(3, next), 1);
    for (const std::string& none : {files.path("no/where"), std::string()})
        EXPECT_EQ(ComOpenReadFile(3, none.c_str()) | ComOpenWriteFile(3, none.c_str()), 0) << none;
}

TEST_F(OpenFiles, HandlesClosedInTheMiddleOfReads) {
    for (int round = 0; round < 50; ++round) {
        const int32_t handle = ComOpenReadFile(3, name);
        std::thread reader([=] {
            char buffer[8];
            while (ComSetFilePointer(3, handle, 0) == 0)
                ComReadFile(3, handle, buffer, 8);
        });
        EXPECT_EQ(ComCloseFile(3, handle), 1);
        reader.join();
    }
    EXPECT_EQ(ComFileExist(name), 1); // all are really closed
}

} // namespace
} // namespace brisolt
