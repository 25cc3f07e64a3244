// Profiles under others' hands: writers at the same time, writers that hang, links, permissions, full disks.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "files/hindrances.h"
#include "params/profile_on_disk.h"
#include "platform/error_text.h"

using namespace brisolt;
using namespace brisolt::test;
namespace fs = std::filesystem;

namespace {

constexpr uid_t somebody = 65534;
const std::string draftName = ".settings.ini.new";

/// Runs in a process of its own.
template <class Work> pid_t child(Work work) {
    const pid_t id = fork();
    if (id != 0)
        return id;
    work();
    _exit(testing::Test::HasFailure() ? 1 : 0);
}
int exitOf(pid_t id) {
    int status = -1;
    waitpid(id, &status, 0);
    return status;
}

TEST(ProfileSafety, WritersAtOnceLoseNothing) {
    constexpr int32_t keys = 30;
    const ProfileOnDisk profile; // nor is the making of it lost
    const auto keyOf = [](char who, int32_t number) { return who + std::to_string(number); };
    const auto addKeys = [&](char who) {
        for (int32_t number = 0; number < keys; ++number)
            EXPECT_EQ(ComWriteProfInt("Shared", keyOf(who, number).c_str(), number, profile.path()), 1)
                << errorText();
    };
    std::vector<pid_t> processes;
    for (const char who : {'a', 'b', 'c', 'd'})
        processes.push_back(child([&] { addKeys(who); }));
    std::vector<std::jthread> threads;
    for (const char who : {'x', 'y', 'z'})
        threads.emplace_back(addKeys, who);
    threads.clear();
    for (const pid_t process : processes)
        EXPECT_EQ(exitOf(process), 0);
    for (const char who : std::string("abcdxyz"))
        for (int32_t number = 0; number < keys; ++number)
            EXPECT_EQ(ComGetProfInt("Shared", keyOf(who, number).c_str(), -1, profile.path()), number) << who;
    EXPECT_EQ(profile.count(), 1);
}

TEST(ProfileSafety, AWriterThatHangsHoldsNobodyForEver) {
    const ProfileOnDisk profile("[s]\nk=1\n");
    const std::string beside = profile.make(draftName, "half");
    {
        PeerProcess holder(BRISOLT_TEST_PEER, {"hold", beside});
        ASSERT_EQ(holder.readLine(), "held");
        const FastClock fast;
        EXPECT_EQ(ComWriteProfInt("s", "k", 2, profile.path()), 0);
        EXPECT_NE(errorText().find(beside), std::string::npos) << errorText();
        EXPECT_EQ(ComWriteProfInt("s", "k", 1, profile.path()), 1) << "nothing to change";
        EXPECT_EQ(ComGetProfInt("s", "k", 0, profile.path()), 1) << "readers need not wait";
    }
    EXPECT_EQ(ComWriteProfInt("s", "k", 2, profile.path()), 1);
    EXPECT_EQ(profile.text(), "[s]\nk=2\n");
}

TEST(ProfileSafety, PermissionsOwnerAndLinksAreKept) {
    const ProfileOnDisk profile("[s]\n");
    const auto statusOf = [](const std::string& file) {
        struct stat status {};
        EXPECT_EQ(stat(file.c_str(), &status), 0);
        return std::array{status.st_mode & 07777, status.st_uid, status.st_gid};
    };
    const std::string second = profile.path("second.ini"), dangling = profile.path("dangling.ini"),
                      loop = profile.path("loop.ini");
    fs::create_directory(profile.path("elsewhere"));
    fs::create_symlink("settings.ini", profile.path("link.ini"));
    fs::create_symlink("link.ini", second);
    fs::create_symlink("elsewhere/new.ini", dangling);
    fs::create_symlink("loop.ini", loop);
    ASSERT_EQ(chmod(profile.path(), 0640), 0);
    EXPECT_EQ(chown(profile.path(), somebody, somebody), geteuid() == 0 ? 0 : -1);
    const auto before = statusOf(profile.path());
    EXPECT_EQ(ComWriteProfInt("s", "k", 1, second.c_str()), 1);
    EXPECT_EQ(profile.text(), "[s]\nk=1\n");
    EXPECT_EQ(statusOf(profile.path()), before);
    umask(027);
    EXPECT_EQ(ComWriteProfInt("s", "k", 2, dangling.c_str()), 1) << errorText();
    EXPECT_EQ(statusOf(profile.path("elsewhere/new.ini"))[0], 0640U) << "of a new file the umask decides";
    EXPECT_EQ(ComWriteProfInt("s", "k", 2, loop.c_str()), 0);
    for (const std::string& link : {profile.path("link.ini"), second, dangling, loop})
        EXPECT_TRUE(fs::is_symlink(link)) << link;
}

// Whoever opens it on its way, or has one open that somebody left behind, sees nothing of a private profile.
TEST(ProfileSafety, ThePrivateIsPrivateOnItsWayToo) {
    const ProfileOnDisk profile("[s]\nk=1\n" + std::string(2'000'000, '#'));
    ASSERT_EQ(chmod(profile.path(), 0600), 0);
    umask(0);
    const std::string beside = profile.make(draftName, "left behind");
    const int reader = open(beside.c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t writer = child([&] {
        for (int32_t value = 2; value < 30; ++value)
            ComWriteProfInt("s", "k", value, profile.path());
    });
    int status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        struct stat draft {};
        const bool there = stat(beside.c_str(), &draft) == 0 && draft.st_size != 11;
        ASSERT_TRUE(!there || (draft.st_mode & 077) == 0) << draft.st_mode;
    }
    EXPECT_EQ(ComGetProfInt("s", "k", 0, profile.path()), 29);
    char text[20];
    EXPECT_EQ(read(reader, text, sizeof text), 11) << "what was left behind, and no more";
    close(reader);
}

// A draft that is another's file leads the profile's text there, and the other's into the profile.
TEST(ProfileSafety, LinksInTheWayAreNotFollowed) {
    const ProfileOnDisk profile("[s]\nk=1\n");
    const std::string second = profile.path("second.ini"), beside = profile.path(draftName);
    fs::create_hard_link(profile.path(), second);
    EXPECT_EQ(ComWriteProfInt("s", "k", 2, second.c_str()), 1);
    EXPECT_EQ(ComGetProfInt("s", "k", 0, second.c_str()), 2);
    EXPECT_EQ(profile.text(), "[s]\nk=1\n") << "the other name keeps the old file";
    using Link = void (*)(const fs::path&, const fs::path&);
    for (const Link link : {Link(fs::create_hard_link), Link(fs::create_symlink)}) {
        link(second, beside);
        EXPECT_EQ(ComWriteProfInt("s", "k", 3, profile.path()), 0);
        EXPECT_NE(errorText().find(beside), std::string::npos) << errorText();
        EXPECT_EQ(ComGetProfInt("s", "k", 0, second.c_str()), 2) << "that is another file";
        EXPECT_EQ(profile.text(), "[s]\nk=1\n");
        fs::remove(beside);
    }
}

TEST(ProfileSafety, WhatCannotBeWrittenStaysAsItIs) {
    const ProfileOnDisk profile("[s]\nk=1\n");
    const char* const path = profile.path();
    const std::string folder = profile.path("");
    ASSERT_EQ(chmod(path, 0444), 0);
    EXPECT_EQ(ComWriteProfInt("s", "k", 2, path), 0);
    EXPECT_NE(errorText().find("read-only"), std::string::npos) << errorText();
    ASSERT_EQ(chmod(path, 0666), 0);
    const std::string fifo = profile.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const std::string nowhere = profile.path("no/such/directory.ini");
    for (const std::string& none : {fifo, nowhere, folder, std::string(5000, 'n')}) {
        EXPECT_EQ(ComWriteProfInt("s", "k", 2, none.c_str()), 0) << none;
        EXPECT_EQ(ComGetProfInt("s", "k", 3, none.c_str()), 3);
    }
    EXPECT_EQ(ComWriteProfString("s", "k", nullptr, nowhere.c_str()), 1)
        << "it is not there, as was asked for";

    {
        const FullDisk disk(20);
        EXPECT_EQ(ComWriteProfString("s", "k", std::string(100, 'v').c_str(), path), 0);
    }
    EXPECT_EQ(profile.text(), "[s]\nk=1\n");
    EXPECT_EQ(profile.count(), 2) << "nothing is left beside it";

    // A directory that may not be written, which holds back everybody but the superuser.
    ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(seteuid(somebody), 0);
    }
    ComPortParms parms{};
    ComGetProfPortParms("s", &parms, path);
    EXPECT_EQ(ComWriteProfPortParms("s", &parms, path, 0), 1)
        << "but for the extras there is nothing to write";
    parms.portNumber = 2;
    EXPECT_EQ(ComWriteProfPortParms("s", &parms, path, 0), 0);
    EXPECT_EQ(ComWriteProfPortParms("s", &parms, profile.path("new.ini").c_str(), 0), 0);
    EXPECT_EQ(seteuid(getuid()), 0);
    EXPECT_EQ(profile.text(), "[s]\nk=1\n");
    EXPECT_EQ(chmod(folder.c_str(), 0755), 0);
}

TEST(ProfileSafety, NamesOfOtherHosts) {
    const ProfileOnDisk profile("[s]\nk=1\n");
    fs::current_path(profile.path(""));
    int32_t value = 1;
    for (const std::string& name : {profile.make("odd\\name.ini", "[s]\nk=7\n"), // a file of that very name
                                    profile.path("\\settings.ini"), std::string("settings.ini")}) {
        EXPECT_EQ(ComWriteProfInt("s", "k", ++value, name.c_str()), 1);
        EXPECT_EQ(ComGetProfInt("s", "k", 0, name.c_str()), value);
    }
    EXPECT_EQ(profile.text(), "[s]\nk=4\n");
    EXPECT_EQ(profile.count(), 2);
}

} // namespace
