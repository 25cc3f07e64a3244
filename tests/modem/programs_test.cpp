// Programs that nobody here wrote, at the modem; and the command, run as a user runs it.
#include <csignal>

#include <sys/resource.h>

#include "modem/simulator.h"
#include "support/peer_process.h"
#include "terminal.h"

using namespace brisolt::test;
using namespace simulated;
namespace fs = std::filesystem;

namespace {

const PeerProcess::Options captured{.captureErrors = true, .inherit = -1};

PeerProcess shell(const std::string& script, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"-c", script, "sh"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return {"/bin/sh", words, captured};
}

} // namespace

TEST(ModemOnAPty, IsDialledTalkedToAndHungUpByMinicom) {
    if (!fs::exists("/usr/bin/minicom"))
        GTEST_SKIP() << "minicom is not installed (Debian package minicom)";
    Exchange exchange;
    const TempDir dir;
    const Simulator here(ptyLine(), exchange, {.number = "100"});
    const Simulator there(ptyLine(), exchange, {.number = "200", .stored = "E0S0=1"});
    Terminal terminal(there.path());
    std::ofstream(dir.file("script"))
        << "timeout 60\nsend \"ATZ\"\nexpect {\n\"OK\"\n}\nsend \"ATDT200\"\nexpect {\n\"password? \"\n}\n"
           "send \"sesame\"\nsleep 2\nsend \"+++\\c\"\nexpect {\n\"OK\"\n}\nsend \"ATH\"\n";
    // It wants a terminal of its own; script gives it one.
    PeerProcess program =
        shell("HOME=\"$1\" TERM=vt100 exec script -qec \"minicom -o -z -D $2 -S $1/script\" /dev/null",
              {dir.path().string(), here.path()});
    terminal.until("CONNECT 33600\r\n", 30s);
    terminal.send("password? ");
    terminal.until("sesame\r");
    terminal.until("NO CARRIER\r\n", 30s);
    EXPECT_EQ(here.commands(), (std::vector<std::string>{"ATZ", "ATDT200", "ATH"}));
    program.write("\x01x");
    for (int tries = 0; tries < 20 && program.wait(500ms) < 0; ++tries)
        program.write("\r");
    EXPECT_EQ(program.wait(1s), 0);
}

struct ModemCommand : testing::Test {
    TempDir dir;

    void SetUp() override {
        if (std::string(BRISOLT_MODEM).empty())
            GTEST_SKIP() << "the tools are not part of this build";
    }
    PeerProcess start(const std::vector<std::string>& more) const {
        std::vector<std::string> words{"--exchange", dir.file("exchange"), "--time-scale", "10"};
        words.insert(words.end(), more.begin(), more.end());
        return {BRISOLT_MODEM, words, captured};
    }
    static void expectRefusal(PeerProcess&& program, const std::string& complaint, int code = 1) {
        EXPECT_EQ(program.wait(), code) << complaint;
        const std::string text = program.readAll();
        EXPECT_NE(text.find(complaint), std::string::npos) << text;
    }
};

TEST_F(ModemCommand, OutlivesTheOthersOfItsExchange) {
    PeerProcess here = start({"--number", "100", "--busy", "5", "6"});
    Terminal terminal(here.readLine().value_or(""));
    terminal.ask("ATE0");
    const std::string link = dir.file("there");
    for (const int end : {SIGKILL, SIGTERM}) {
        PeerProcess there = start({"--number", "200", "--link", link, "--stored", "S0=1"});
        ASSERT_TRUE(there.readLine()) << "a dead one's number and link can be had";
        Terminal far(link);
        terminal.ask("ATD200", "CONNECT 33600\r\n");
        far.until("CONNECT 33600\r\n");
        far.send("alive");
        terminal.until("alive");

        expectRefusal(start({"--number", "200"}), "another modem has the number 200");
        expectRefusal(start({"--link", dir.path().string() + "/./there"}),
                      "/there: is the link of a terminal that is in use (process " +
                          std::to_string(there.id()));
        EXPECT_TRUE(fs::exists(link)) << "and it still leads there";

        there.kill(end);
        EXPECT_EQ(there.wait(), end == SIGKILL ? 128 + SIGKILL : 0);
        terminal.until("NO CARRIER\r\n");
        EXPECT_EQ(fs::is_symlink(link), end == SIGKILL) << "a dead process leaves its link";
        terminal.ask("ATD200", "NO CARRIER\r\n");
    }
    terminal.ask("ATD6", "BUSY\r\n");
}

TEST_F(ModemCommand, TellsWhatItCannotDo) {
    const std::string file = dir.file("file"), link = dir.file("link"), fresh = dir.file("new");
    std::ofstream(file) << "mine";
    fs::create_symlink(file, link);
    expectRefusal(start({"--rate", "0"}), "--rate", 2);
    expectRefusal(start({"--slow", "Z:soon"}), "Z:soon");
    expectRefusal(start({"--stored", "ATX9"}), "ATX9");
    expectRefusal(start({"--number", "1/2"}), "is no telephone number");
    expectRefusal(start({"--link", file}), "file: is there already");
    expectRefusal(start({"--link", link}), "link: is there already");
    expectRefusal({BRISOLT_MODEM, {"--exchange", file + "/x"}, captured}, "file/x");
    for (const auto& [to, why] : {std::pair("/dev/full", "No space left"), {"&-", "Bad file descriptor"}})
        expectRefusal(shell(std::string("exec $1 --link $2 >") + to, {BRISOLT_MODEM, fresh}), why);
    EXPECT_FALSE(fs::is_symlink(fresh));

    PeerProcess faulty = start({"--silent", "Z:1", "--refuse", "&K3", "--verbose"});
    Terminal terminal(faulty.readLine().value_or(""));
    EXPECT_EQ(terminal.ask("ATZ\rAT&K3\rATZ"), "ATZ\rAT&K3\r\r\nERROR\r\nATZ\r\r\nOK\r\n");
    EXPECT_EQ(faulty.readLine(), "command ATZ");
}

// A host that has nothing left for a modem in the middle of its life.
TEST_F(ModemCommand, EndsWhenTheHostGivesNoMore) {
    const std::string link = dir.file("here");
    const auto expectEnd = [&](__rlimit_resource resource, bool called, const std::string& complaint) {
        PeerProcess modem = start({"--number", "100", "--link", link});
        const std::string path = modem.readLine().value_or("");
        rlimit limit{3, 3};
        for (; called && fs::is_symlink("/proc/" + std::to_string(modem.id()) + "/fd/" +
                                        std::to_string(limit.rlim_cur));)
            limit.rlim_max = ++limit.rlim_cur;
        ASSERT_EQ(prlimit(modem.id(), resource, &limit, nullptr), 0);
        Exchange exchange(dir.file("exchange"));
        const Simulator caller(ptyLine(), exchange);
        if (called)
            Terminal(caller.path()).send("AT&D0DT100\r");
        // The lines that it is given it keeps, so it needs more and more.
        PeerProcess talker = shell("exec yes \"$(printf 'ATE0Q1\\r')\" >$1", {path});
        expectRefusal(std::move(modem), "brisolt-modem: " + complaint + "\n");
        EXPECT_FALSE(fs::is_symlink(link));
    };
    expectEnd(RLIMIT_NOFILE, true, "telephone line: Too many open files");
    expectEnd(RLIMIT_NOFILE, false, "waiting for the line: Invalid argument");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which have books of their own to keep
    expectEnd(RLIMIT_DATA, false, "out of memory");
#endif
}

TEST(Demonstration, SucceedsAndFailsWithWhatItShows) {
    if (std::string(BRISOLT_DEMO).empty())
        GTEST_SKIP() << "the tools are not part of this build";
    const TempDir dir;
    PeerProcess demo = shell("TMPDIR=$2 exec $1", {BRISOLT_DEMO, dir.path().string()});
    EXPECT_EQ(demo.wait(60s), 0) << demo.readAll(1s);
    PeerProcess alone = shell("PATH=/none TMPDIR=$2 exec $1", {BRISOLT_DEMO, dir.path().string()});
    EXPECT_EQ(alone.wait(), 1);
    EXPECT_NE(alone.readAll().find("brisolt-demo: socat: "), std::string::npos);
}
