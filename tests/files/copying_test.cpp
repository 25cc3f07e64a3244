// Appending, copying, moving and deleting: what they do, and that no failure loses anything.
#include <sys/stat.h>
#include <unistd.h>

#include "files/hindrances.h"
#include "platform/error_text.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using test::Holder;
using Operation = int32_t (*)(const char*, const char*);
constexpr Operation operations[] = {ComAppendFile, ComCopyFile, ComMoveFile};

class Copying : public testing::Test {
protected:
    int32_t run(Operation operation) const { return operation(to.c_str(), from.c_str()); }
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
        for (const Operation operation : {ComAppendFile, ComAppendFile, ComCopyFile, ComMoveFile}) {
            const std::string before = operation == ComAppendFile ? files.bytes("to") : "";
            EXPECT_EQ(run(operation), 1);
            EXPECT_EQ(files.bytes("to"), before + some);
        }
        EXPECT_FALSE(std::filesystem::exists(from));
    }
    EXPECT_EQ(files.count(), 1);
}

TEST_F(Copying, AFullDiskCostsNothing) {
    files.make("to", "before");
    for (const Operation operation : operations) {
        const test::FullDisk disk(2500);
        EXPECT_EQ(run(operation), -4);
        EXPECT_EQ(operation(files.path("new").c_str(), from.c_str()), -4);
        EXPECT_EQ(files.bytes("to"), "before");
        EXPECT_EQ(files.bytes("from"), bytes);
        EXPECT_EQ(files.count(), 2) << "no half file is left";
    }
    EXPECT_NE(errorText().find(files.path("new")), std::string::npos) << errorText();
    EXPECT_EQ(run(ComMoveFile), 1);
}

TEST_F(Copying, WhatIsHeldOrProtectedIsLeftAlone) {
    files.make("to", "before");
    const auto refused = [&](const std::string& who, int32_t append, int32_t copy) {
        SCOPED_TRACE(who);
        EXPECT_EQ(run(ComAppendFile), append);
        EXPECT_EQ(run(ComCopyFile), copy);
        EXPECT_EQ(run(ComMoveFile), copy);
        EXPECT_EQ(files.bytes("to"), "before");
        EXPECT_EQ(files.bytes("from"), bytes);
    };
    for (const std::string& held : {from, to}) {
        const Holder holder("<", held);
        refused(held + " is held", held == from ? -1 : -2, -1);
    }
    chmod(to.c_str(), 0444);
    refused("a read-only destination", -2, -1);
    EXPECT_EQ(ComMoveFile(to.c_str(), files.path("missing").c_str()), -1);
    for (const std::string& nowhere : {files.path("no/such/directory"), std::string(5000, 'n')})
        for (const Operation operation : operations)
            EXPECT_EQ(operation(nowhere.c_str(), from.c_str()), -2);
    EXPECT_EQ(ComCopyFile(files.path("").c_str(), from.c_str()), -1); // a directory is in the way
}

TEST_F(Copying, OntoItselfUnderAnyName) {
    std::filesystem::create_hard_link(from, files.path("hard"));
    std::filesystem::create_symlink(from, files.path("soft"));
    for (const char* name : {"from", "hard", "soft"})
        for (const Operation operation : operations) {
            EXPECT_EQ(operation(files.path(name).c_str(), from.c_str()),
                      operation == ComAppendFile ? -2 : -1);
            EXPECT_EQ(files.bytes("from"), bytes) << name;
        }
    EXPECT_EQ(files.count(), 3);
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

// The one is emptied as soon as the copy has begun. Either that comes too late, or before anything was read, or
// it is told.
TEST_F(Copying, ASourceThatFailsOnTheWay) {
    files.make("to", "before");
    for (const Operation operation : {ComCopyFile, ComAppendFile})
        EXPECT_EQ(operation(to.c_str(), "/proc/self/mem"), -3); // opens, and fails at its first byte
    EXPECT_EQ(files.bytes("to"), "before");
    constexpr uintmax_t large = 32 << 20;
    std::filesystem::resize_file(from, large);
    std::thread somebody([this] {
        test::eventually([this] { return files.opened() == 2; });
        std::filesystem::resize_file(from, 0);
    });
    const int32_t result = run(ComCopyFile);
    somebody.join();
    const uintmax_t copied = std::filesystem::file_size(to);
    EXPECT_TRUE(result == 1 ? copied == large || copied == 0 : result == -3) << result << ' ' << copied;
    EXPECT_EQ(files.count(), 2);
}

TEST_F(Copying, DeletingByPatternTakesWhatTheSearchFinds) {
    std::filesystem::create_directories(files.path("sub/x"));
    const std::vector<std::string> all{".c.tmp",    "a.tmp",     "b.tmp",   "kept.txt",
                                       "sub/d.tmp", "sub/e.TMP", "sub/x/y", "sub/x\\y"};
    const auto left = [&] {
        std::string names;
        for (const std::string& name : all)
            names += std::filesystem::exists(files.path(name)) ? ' ' + name : "";
        return names;
    };
    for (const std::string& name : all)
        files.make(name, "x");
    const Holder holder("<", files.path("b.tmp"));
    ASSERT_EQ(ComSetCurrentDirectory(files.path("").c_str()), 1);
    EXPECT_EQ(ComDeleteMultipleFiles("*.tmp"), 1);
    // One is held, one hidden.
    EXPECT_EQ(left(), " .c.tmp b.tmp kept.txt sub/d.tmp sub/e.TMP sub/x/y sub/x\\y");
    for (const char* pattern : {"sub\\*.tmp", "sub/\377e.TMP\377nowhere\377"})
        EXPECT_EQ(ComDeleteMultipleFiles(pattern), 1);
    EXPECT_EQ(left(), " .c.tmp b.tmp kept.txt sub/x/y sub/x\\y");
    EXPECT_EQ(ComDeleteMultipleFiles("sub\\*"), 1);
    EXPECT_EQ(left(), " .c.tmp b.tmp kept.txt sub/x/y");
}

} // namespace
} // namespace brisolt
