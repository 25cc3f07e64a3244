// Who counts as having a file open, and what that forbids to others.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "brisolt.h"
#include "files/holders.h"
#include "platform/file.h"
#include "support/bare_port.h"
#include "transfer/files.h"

namespace brisolt {
namespace {

using test::Holder;

class Sharing : public testing::Test {
protected:
    /// What the two tests tell of a file: free, readable by others only, or not there.
    static std::string seen(const std::string& name) {
        const int32_t exclusive = ComFileExist(name.c_str());
        const int32_t shared = ComFileExist_Read_Shared(name.c_str());
        return std::string(exclusive == 1 ? "free" : "-") + (shared == 1 ? " shared" : " -");
    }
    test::Files files;
    std::string path = files.make("file", "12345");
    const char* name = path.c_str();
};

TEST_F(Sharing, AnotherProcessHoldsAFile) {
    for (const char* how : {"<", ">>", "<>"}) {
        Holder holder(how, path);
        EXPECT_EQ(seen(path), "- shared") << how;
        EXPECT_EQ(ComDeleteFile(name), 0) << how;
        EXPECT_EQ(ComFileSize(name), std::string(how) == "<" ? 5 : 0) << how;
        holder.letGo();
        EXPECT_EQ(seen(path), "free shared") << how;
    }
    EXPECT_EQ(ComDeleteFile(name), 1);
    EXPECT_EQ(seen(path), "- -");
}

TEST_F(Sharing, ThisProgramHoldsAFile) {
    test::BarePort port{3};
    {
        std::ifstream own(path); // past the library
        EXPECT_EQ(seen(path), "- shared");
        EXPECT_EQ(ComDeleteFile(name), 0);
    }
    const int32_t reader = ComOpenReadFile(3, name);
    ASSERT_GT(reader, 0);
    EXPECT_EQ(seen(path), "- shared");
    EXPECT_EQ(ComOpenWriteFile(3, name), 0); // it denies writing
    const int32_t second = ComOpenReadFile(3, name);
    EXPECT_EQ(ComSetDebugFile(3, name, "T"), -2);
    ComCloseFile(3, reader);
    EXPECT_EQ(seen(path), "- shared");
    ComCloseFile(3, second);
    EXPECT_EQ(seen(path), "free shared");

    const int32_t writer = ComOpenWriteFile(3, name);
    ASSERT_GT(writer, 0);
    EXPECT_EQ(ComOpenReadFile(3, name), 0);
    EXPECT_EQ(ComFileSize(name), 0);
    const int32_t other = ComOpenWriteFile(3, name);
    EXPECT_GT(other, 0); // these two share everything
    ComCloseFile(3, writer);
    ComCloseFile(3, other);
    EXPECT_EQ(ComDeleteFile(name), 1);
}

TEST_F(Sharing, WhatIsNoFileIsNeitherFoundNorTouched) {
    const std::string directory = files.path("directory"), dangling = files.path("dangling"),
                      pipe = files.path("pipe"), protectedFile = files.make("protected", "x");
    std::filesystem::create_directory(directory);
    std::filesystem::create_symlink(files.path("nowhere"), dangling);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    chmod(protectedFile.c_str(), 0444);
    for (const std::string& odd : {directory, dangling, pipe, std::string("/dev/null"), std::string()}) {
        EXPECT_EQ(seen(odd), "- -") << odd;
        EXPECT_EQ(ComFileSize(odd.c_str()), 0);
        EXPECT_EQ(ComDeleteFile(odd.c_str()), 0);
    }
    EXPECT_EQ(seen(protectedFile), "- shared"); // for the superuser, too
    EXPECT_EQ(ComDeleteFile(protectedFile.c_str()), 0);

    // Somebody waits in the pipe for a reader: he must not be woken.
    test::PeerProcess waiting("/bin/sh", {"-c", "echo ready; echo woken >'" + pipe + "'; echo woken"});
    ASSERT_EQ(waiting.readLine(), "ready");
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(seen(pipe), "- -");
    EXPECT_EQ(waiting.readLine(std::chrono::milliseconds(100)), std::nullopt);
    waiting.kill(SIGKILL);
}

TEST_F(Sharing, ALinkIsFollowedAndDeletedAlone) {
    const std::string link = files.path("link");
    std::filesystem::create_symlink(path, link);
    EXPECT_EQ(seen(link), "free shared");
    {
        Holder holder("<", path);
        EXPECT_EQ(seen(link), "- shared");
        EXPECT_EQ(ComDeleteFile(link.c_str()), 0);
    }
    EXPECT_EQ(ComDeleteFile(link.c_str()), 1);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    EXPECT_EQ(files.bytes("file"), "12345");
}

TEST_F(Sharing, TestsDoNotStandInEachOthersWay) {
    std::atomic<int> missed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 300; ++round)
                missed += ComFileExist(name) != 1 || ComFileExist_Read_Shared(name) != 1;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(missed, 0);
}

// Each open of theirs may fall into a test of ours; it ends no program and fails nobody.
TEST_F(Sharing, OthersOpenAndCloseAsFastAsTheyCan) {
    std::vector<std::unique_ptr<test::PeerProcess>> others;
    for (const char* how : {": <", ": >>"})
        others.push_back(std::make_unique<test::PeerProcess>(
            "/bin/sh", std::vector<std::string>{"-ec", "echo on; while true; do " + std::string(how) + "'" +
                                                           path + "'; done"}));
    for (auto& other : others)
        ASSERT_EQ(other->readLine(), "on");
    for (int round = 0; round < 3000; ++round) {
        ComFileExist(name);
        ASSERT_EQ(ComFileExist_Read_Shared(name), 1);
        ASSERT_TRUE(file::Appender(name, file::Sharing::all, file::Missing::refuse));
    }
    for (auto& other : others) {
        EXPECT_EQ(other->wait(std::chrono::milliseconds(50)), -1) << "it ended";
        other->kill(SIGKILL);
        other->wait();
    }
    EXPECT_EQ(seen(path), "free shared");
}

TEST_F(Sharing, BackslashesStreamsAndLargeFiles) {
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

} // namespace
} // namespace brisolt
