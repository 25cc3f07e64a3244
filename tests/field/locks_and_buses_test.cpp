// What an open port leaves alone and makes known: lock files, other processes, the direction of a bus.
#include <filesystem>
#include <fstream>
#include <future>
#include <iomanip>
#include <optional>

#include <sys/wait.h>
#include <unistd.h>

#include "field/field_port.h"
#include "platform/posix/tty/uucp_lock.h"
#include "support/peer_process.h"
#include "support/pty.h"

using namespace brisolt::test;

namespace {

using Clock = std::chrono::steady_clock;

/// The lock file of UUCP programs for a path.
std::filesystem::path lockOf(std::string path) {
    path.erase(0, sizeof "/dev/" - 1);
    std::replace(path.begin(), path.end(), '/', '_');
    return "/run/lock/LCK.." + path;
}

pid_t ownerOf(const std::filesystem::path& lock) {
    pid_t owner = 0;
    std::ifstream(lock) >> owner;
    return owner;
}

class FieldLock : public testing::Test {
protected:
    void SetUp() override {
        if (access("/run/lock", W_OK) != 0)
            GTEST_SKIP() << "the folder of lock files cannot be written here";
    }
    /// An open fails and tells of the lock and its owner.
    void expectRefused(const std::string& owner) const {
        EXPECT_EQ(ComHostOpen(pty.slavePath().c_str(), 9600, "8N1"), -25);
        const std::string text = errorTextNow();
        EXPECT_NE(text.find(lock.string()), std::string::npos) << text;
        EXPECT_NE(text.find(owner), std::string::npos) << text;
    }
    const Pty pty;
    const std::filesystem::path lock = lockOf(pty.slavePath());
};

TEST_F(FieldLock, IsKeptToAndLeftWhileTheDeviceIsOpen) {
    PeerProcess sleeper("/bin/cat", {});
    std::ofstream(lock) << std::setw(10) << sleeper.id() << '\n';
    expectRefused(std::to_string(sleeper.id()));
    { const FieldPort shared(pty.slavePath() + "?exclusive=no"); }
    EXPECT_EQ(ownerOf(lock), sleeper.id()) << "nothing of somebody else's is touched";

    sleeper.closeInput();
    EXPECT_EQ(sleeper.wait(), 0);
    {
        const FieldPort port(pty.slavePath());
        EXPECT_EQ(ownerOf(lock), getpid()) << "the lock of a dead process counts for nothing";
    }
    EXPECT_FALSE(std::filesystem::exists(lock));
}

TEST_F(FieldLock, OneThatIsBeingWrittenIsHeldAndOursGoesWithTheLastOfUs) {
    std::ofstream(lock).close(); // the number follows in a moment
    expectRefused("");
    std::filesystem::last_write_time(lock, std::filesystem::file_time_type::clock::now() -
                                               std::chrono::minutes(1)); // or never
    {
        brisolt::tty::UucpLock first, second;
        EXPECT_EQ(first.take(pty.slavePath()), 0);
        EXPECT_EQ(second.take(pty.slavePath()), 0);
        first.release();
        EXPECT_EQ(ownerOf(lock), getpid());
    }
    EXPECT_FALSE(std::filesystem::exists(lock));
}

TEST(FieldFork, AChildThatClosesNothingKeepsNothing) {
    const Pty pty;
    int32_t port = ComHostOpen(pty.slavePath().c_str(), 9600, "8N1");
    ASSERT_GT(port, 0);
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(ComHostClose(port, 0), 1);
    EXPECT_TRUE(eventually([&] { return !pty.connected(); })) << "the far end sees that nobody is left";
    EXPECT_FALSE(std::filesystem::exists(lockOf(pty.slavePath())));
    { const FieldPort again(pty.slavePath()); }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST(FieldFork, AChildOpensItsOwnPortsWhateverItsParentHas) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's own locks do not outlive a fork of a program with threads";
#endif
    const Pty parents;
    std::optional<Pty> childs(std::in_place);
    const FieldPort kept(parents.slavePath() + "?keep=yes"), loop("loop:parent");
    EXPECT_EQ(ComHostSetEventMessage(kept, COM_HOST_EVENT_GONE, 0, ComHostThreadId()), 1);
    const pid_t child = fork();
    if (child == 0) {
        bool well = ComHostGetPortState(kept) == 0 && ComStatus(loop) == -1 && ComHostClose(loop, 0) == -1;
        const int32_t own = ComHostOpen((childs->slavePath() + "?keep=yes").c_str(), 9600, "8N1");
        well = well && own > 0 && ComHostOpen("loop:parent", 9600, "8N1") > 0;
        well = well && ComHostSetEventMessage(own, COM_HOST_EVENT_GONE, 0, ComHostThreadId()) == 1;
        well = well && ComHostGetPortState(kept) == 0 && ComHostGetPortState(loop) == 0; // still
        childs.reset();
        ComHostMessage message{};
        well = well && ComHostGetMessage(&message, 10000) == 1 && message.first == COM_HOST_EVENT_GONE;
        _exit(well ? 0 : 1);
    }
    childs.reset();
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ComHostGetPortState(kept), COM_HOST_DEVICE_THERE);
}

TEST(FieldRs485, RtsIsRaisedRoundEachBlock) {
    const FieldPort far("null-modem:bus?paced=yes", 9600);
    const FieldPort bus("null-modem:bus?paced=yes&rs485=rts&rs485-before=300&rs485-after=200", 9600);
    constexpr int32_t cts = COM_HOST_MODEM_CTS; // the other end's RTS
    EXPECT_EQ(ComHostGetLines(far) & cts, 0);
    EXPECT_EQ(ComHostGetLines(bus) & COM_HOST_MODEM_RTS, 0);

    const std::string block = pattern(480); // half a second of the line
    const auto start = Clock::now();
    EXPECT_EQ(bus.write(block), 480);
    EXPECT_EQ(far.read(1), block.substr(0, 1));
    EXPECT_GE(Clock::now() - start, 300ms);
    EXPECT_NE(ComHostGetLines(far) & cts, 0);
    EXPECT_EQ(far.read(479), block.substr(1));
    EXPECT_EQ(ComHostDrain(bus, 10000), 1);
    EXPECT_TRUE(eventually([&] { return (ComHostGetLines(far) & cts) == 0; }));
    EXPECT_GE(Clock::now() - start, 300ms + 200ms + 490ms);
    EXPECT_EQ(far.counters().cts, 2U) << "up and down, once";
}

TEST(FieldRs485, AWriteIsLargerThanTheRing) {
    const FieldPort bus("null-modem:wide?paced=yes&rs485=rts", 1000000); // 100 KB a second
    const FieldPort far("null-modem:wide?paced=yes", 1000000);
    for (const int32_t port : {int32_t{bus}, int32_t{far}}) // or a standstill of ours costs bytes
        EXPECT_EQ(ComHostSetLine(port, 0, nullptr, COM_FLOW_DTR_DSR), 1);
    auto whole = std::async(std::launch::async, [&] { return bus.write(pattern(90000), 20000); });
    EXPECT_EQ(far.read(90000), pattern(90000));
    EXPECT_EQ(whole.get(), 90000);
}

} // namespace
