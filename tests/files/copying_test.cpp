// Appending, copying, moving and deleting: what they do, and that no failure loses anything.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include <sys/stat.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "files/full_disk.h"
#include "files/holders.h"
#include "transfer/files.h"

namespace brisolt {
namespace {

using test::Holder;
using Operation = int32_t (*)(const char*, const char*);

class Copying : public testing::Test {
protected:
    int32_t run(Operation operation) const { return operation(to.c_str(), from.c_str()); }
    int entries() const {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(files.path("")), {}));
    }
    test::Files files;
    std::string bytes = test::pattern(3500);
    std::string from = files.make("from", bytes);
    std::string to = files.path("to");
};

TEST_F(Copying, MovesTheBytes) {
    for (const std::size_t size : {0, 1, 1000, 3500}) {
        const std::string some = bytes.substr(0, size);
        files.make("from", some);
        std::filesystem::remove(to);
        EXPECT_EQ(run(ComAppendFile), 1);
        EXPECT_EQ(run(ComAppendFile), 1);
        EXPECT_EQ(files.bytes("to"), some + some);
        EXPECT_EQ(run(ComCopyFile), 1);
        EXPECT_EQ(files.bytes("to"), some);
        EXPECT_EQ(run(ComMoveFile), 1);
        EXPECT_EQ(files.bytes("to"), some);
        EXPECT_FALSE(std::filesystem::exists(from));
    }
    EXPECT_EQ(entries(), 1);
}

TEST_F(Copying, AFullDiskCostsNothing) {
    files.make("to", "before");
    const std::vector<std::pair<Operation, const char*>> cases{
        {ComAppendFile, "append"}, {ComCopyFile, "copy"}, {ComMoveFile, "move"}};
    for (const auto& [operation, name] : cases) {
        SCOPED_TRACE(name);
        const test::FullDisk disk(2500);
        EXPECT_EQ(run(operation), -4);
        EXPECT_EQ(operation(files.path("new").c_str(), from.c_str()), -4);
        EXPECT_EQ(files.bytes("to"), "before");
        EXPECT_EQ(files.bytes("from"), bytes);
        EXPECT_EQ(entries(), 2) << "no half file is left";
    }
    char reason[300];
    EXPECT_GT(ComHostGetErrorText(reason, sizeof reason), 0);
    EXPECT_NE(std::string(reason).find(files.path("new")), std::string::npos) << reason;
    EXPECT_EQ(run(ComMoveFile), 1);
}

TEST_F(Copying, WhatIsHeldOrProtectedIsLeftAlone) {
    files.make("to", "before");
    const auto refused = [&](int32_t append, int32_t copy) {
        EXPECT_EQ(run(ComAppendFile), append);
        EXPECT_EQ(run(ComCopyFile), copy);
        EXPECT_EQ(run(ComMoveFile), copy);
        EXPECT_EQ(files.bytes("to"), "before");
        EXPECT_EQ(files.bytes("from"), bytes);
    };
    {
        SCOPED_TRACE("the source is held");
        const Holder holder("<", from);
        refused(-1, -1);
    }
    {
        SCOPED_TRACE("the destination is held");
        const Holder holder("<", to);
        refused(-2, -1);
    }
    {
        SCOPED_TRACE("the destination is read-only");
        chmod(to.c_str(), 0444);
        refused(-2, -1);
    }
    std::filesystem::rename(from, files.path("elsewhere"));
    EXPECT_EQ(run(ComMoveFile), -1); // no source
    from = files.path("elsewhere");
    to = files.path("no/such/directory");
    for (const Operation operation : {ComAppendFile, ComCopyFile, ComMoveFile})
        EXPECT_EQ(run(operation), -2);
    to = files.path("");
    EXPECT_EQ(run(ComCopyFile), -1); // a directory is in the way
    EXPECT_EQ(ComCopyFile(nullptr, from.c_str()), -2);
    EXPECT_EQ(ComMoveFile(to.c_str(), nullptr), -1);
}

TEST_F(Copying, OntoItselfUnderAnyName) {
    std::filesystem::create_hard_link(from, files.path("hard"));
    std::filesystem::create_symlink(from, files.path("soft"));
    for (const char* name : {"from", "hard", "soft"}) {
        to = files.path(name);
        EXPECT_EQ(run(ComAppendFile), -2) << name;
        EXPECT_EQ(run(ComCopyFile), -1) << name;
        EXPECT_EQ(run(ComMoveFile), -1) << name;
        EXPECT_EQ(files.bytes("from"), bytes) << name;
    }
    EXPECT_EQ(entries(), 3);
}

TEST_F(Copying, LinksAndPermissionsStay) {
    const auto permissions = [this](const char* name) {
        struct stat status {};
        stat(files.path(name).c_str(), &status);
        return status.st_mode & 0777;
    };
    files.make("real", "before");
    chmod(files.path("real").c_str(), 0620);
    chmod(from.c_str(), 0700);
    std::filesystem::create_symlink("real", to);
    EXPECT_EQ(run(ComCopyFile), 1);
    EXPECT_TRUE(std::filesystem::is_symlink(to));
    EXPECT_EQ(files.bytes("real"), bytes);
    EXPECT_EQ(permissions("real"), 0620U);
    for (const Operation operation : {ComAppendFile, ComCopyFile}) {
        std::filesystem::remove(to);
        EXPECT_EQ(run(operation), 1);
        EXPECT_EQ(permissions("to"), 0700U);
    }
}

TEST_F(Copying, ASourceThatFailsOnTheWay) {
    files.make("to", "before");
    const char* unreadable = "/proc/self/mem"; // opens, and fails at its first byte
    EXPECT_EQ(ComCopyFile(to.c_str(), unreadable), -3);
    EXPECT_EQ(ComAppendFile(to.c_str(), unreadable), -3);
    EXPECT_EQ(files.bytes("to"), "before");
    EXPECT_EQ(entries(), 2);

    // Somebody empties it as soon as the copy has begun. Either that comes too late, or before anything was
    // read, or it is told.
    constexpr uintmax_t large = 32 << 20;
    std::filesystem::resize_file(from, large);
    std::thread somebody([this] {
        test::eventually([this] { return entries() > 2; });
        std::filesystem::resize_file(from, 0);
    });
    const int32_t result = run(ComCopyFile);
    somebody.join();
    const uintmax_t copied = std::filesystem::file_size(to);
    if (result == 1)
        EXPECT_TRUE(copied == large || copied == 0) << copied;
    else
        EXPECT_EQ(result, -3);
    EXPECT_EQ(entries(), 2);
}

TEST_F(Copying, DeletingByPatternStaysWhereItIsTold) {
    std::filesystem::create_directory(files.path("sub"));
    for (const char* name : {"a.tmp", "b.tmp", "kept.txt", ".c.tmp", "sub/d.tmp", "sub/e.TMP"})
        files.make(name, "x");
    const Holder holder("<", files.path("b.tmp"));
    ASSERT_EQ(ComSetCurrentDirectory(files.path("").c_str()), 1);
    EXPECT_EQ(ComDeleteMultipleFiles("*.tmp"), 1);
    EXPECT_EQ(entries(), 5); // from, b.tmp held, kept.txt, .c.tmp hidden, sub
    EXPECT_FALSE(std::filesystem::exists("a.tmp"));
    EXPECT_TRUE(std::filesystem::exists("sub/d.tmp"));
    EXPECT_EQ(ComDeleteMultipleFiles("sub\\*.tmp"), 1);
    EXPECT_FALSE(std::filesystem::exists("sub/d.tmp"));
    EXPECT_EQ(ComDeleteMultipleFiles("sub/\xFF"
                                     "e.TMP\xFFnowhere"),
              1);
    EXPECT_TRUE(std::filesystem::is_empty("sub"));
}

} // namespace
} // namespace brisolt
