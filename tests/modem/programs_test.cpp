// Programs that nobody here wrote, at the modem; and the command, run as a user runs it.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "modem/simulator.h"
#include "support/peer_process.h"
#include "support/temp_dir.h"
#include "terminal.h"

#ifndef BRISOLT_MODEM
#define BRISOLT_MODEM ""
#endif

#ifndef BRISOLT_DEMO
#define BRISOLT_DEMO ""
#endif

using brisolt::test::PeerProcess;
using brisolt::test::TempDir;
using brisolt::test::Terminal;
using namespace simulated;
using namespace std::chrono_literals;

namespace {

/// Where Debian puts it; empty when it is not installed.
std::string program(const std::string& name) {
    for (const char* folder : {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"})
        if (std::filesystem::exists(folder + name))
            return folder + name;
    return {};
}

PeerProcess shell(const std::string& script, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"-c", script, "sh"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return {"/bin/sh", words, {.captureErrors = true, .inherit = -1}};
}

struct ModemCommand : testing::Test {
    TempDir dir;

    void SetUp() override {
        if (std::string(BRISOLT_MODEM).empty())
            GTEST_SKIP() << "the command is not part of this build";
    }
    PeerProcess start(const std::vector<std::string>& more) const {
        std::vector<std::string> words{"--exchange", dir.file("exchange"), "--time-scale", "10"};
        words.insert(words.end(), more.begin(), more.end());
        return {BRISOLT_MODEM, words, {.captureErrors = true, .inherit = -1}};
    }
};

} // namespace

TEST_F(ModemCommand, ChatDialsTalksAndHangsUp) {
    const std::string chat = program("chat");
    if (chat.empty())
        GTEST_SKIP() << "chat is not installed (Debian package ppp)";
    // At its own pace: chat's pauses are real seconds.
    PeerProcess here(BRISOLT_MODEM,
                     {"--exchange", dir.file("exchange"), "--number", "100", "--link", dir.file("here")});
    PeerProcess there(BRISOLT_MODEM, {"--exchange", dir.file("exchange"), "--number", "200", "--stored",
                                      "S0=1", "--link", dir.file("there")});
    ASSERT_TRUE(here.readLine());
    const auto path = there.readLine();
    ASSERT_TRUE(path);
    EXPECT_EQ(std::filesystem::read_symlink(dir.file("there")), *path);

    PeerProcess answering = shell(
        "exec <>$2 >&0; exec $1 TIMEOUT 20 CONNECT '' 'user:' 'login: \\c' 'user:' '' 'NO CARRIER' '\\c'",
        {chat, dir.file("there")});
    PeerProcess login = shell(
        "exec <>$2 >&0; $1 ABORT BUSY ABORT ERROR TIMEOUT 20 '' ATZ OK 'AT&F&C1&D2' OK 'AT&K3' OK ATDT200 "
        "'CONNECT 33600' 'user:' login: '\\d\\d+++\\d\\d\\c' OK ATH0 OK '\\c'",
        {chat, dir.file("here")});
    EXPECT_EQ(login.wait(30s), 0) << login.readAll(1s);
    answering.kill(SIGTERM);
}

TEST_F(ModemCommand, MinicomDialsTalksAndHangsUp) {
    const std::string minicom = program("minicom");
    if (minicom.empty())
        GTEST_SKIP() << "minicom is not installed (Debian package minicom)";
    Exchange exchange;
    const Simulator here(ptyLine(), exchange, {.number = "100"});
    const Simulator there(ptyLine(), exchange, {.number = "200", .stored = "E0S0=1"});
    Terminal terminal(there.path());
    std::ofstream(dir.file("script")) << R"(timeout 60
send "ATZ"
expect {
    "OK"
}
send "ATDT200"
expect {
    "CONNECT 33600"
}
expect {
    "password? "
}
send "sesame"
expect {
    "welcome"
}
sleep 2
send "+++\c"
expect {
    "OK"
}
send "ATH"
)";
    // It wants a terminal of its own; script gives it one.
    PeerProcess program = shell("HOME=\"$1\" TERM=vt100 exec script -qec \"$2 -o -z -D $3 -S $1/script\" "
                                "/dev/null",
                                {dir.path().string(), minicom, here.path()});
    terminal.until("CONNECT 33600\r\n", 30s);
    terminal.send("password? ");
    terminal.until("sesame\r");
    terminal.send("welcome\r\n");
    terminal.until("NO CARRIER\r\n", 30s);
    EXPECT_EQ(here.commands(), (std::vector<std::string>{"ATZ", "ATDT200", "ATH"}));
    program.write("\x01x");
    for (int tries = 0; tries < 20 && program.wait(500ms) < 0; ++tries)
        program.write("\r");
    EXPECT_EQ(program.wait(1s), 0);
}

TEST_F(ModemCommand, OutlivesTheOthersOfItsExchange) {
    PeerProcess here = start({"--number", "100", "--busy", "5", "6"});
    const auto path = here.readLine();
    ASSERT_TRUE(path);
    Terminal terminal(*path);
    terminal.ask("ATE0");
    for (int round = 0; round < 2; ++round) {
        PeerProcess there = start({"--number", "200", "--link", dir.file("there"), "--stored", "S0=1"});
        ASSERT_TRUE(there.readLine());
        Terminal far(dir.file("there"));
        terminal.send("ATD200\r");
        terminal.until("CONNECT 33600\r\n");
        far.until("CONNECT 33600\r\n");
        far.send("alive");
        terminal.until("alive");

        PeerProcess same = start({"--number", "200"});
        EXPECT_EQ(same.wait(), 1);
        EXPECT_NE(same.readAll().find("another modem has the number 200"), std::string::npos);

        there.kill(round == 0 ? SIGKILL : SIGTERM);
        EXPECT_EQ(there.wait(), round == 0 ? 128 + SIGKILL : 0);
        terminal.until("NO CARRIER\r\n");
        EXPECT_EQ(std::filesystem::is_symlink(dir.file("there")), round == 0)
            << "a dead process leaves its link";
        terminal.send("ATD200\r");
        terminal.until("NO CARRIER\r\n");
    }
    terminal.send("ATD6\r");
    terminal.until("BUSY\r\n");
}

TEST_F(ModemCommand, TellsWhatItCannotDo) {
    std::ofstream(dir.file("file")) << "mine";
    const struct {
        std::vector<std::string> words;
        int code;
        const char* complaint;
    } cases[] = {{{"--rate", "0"}, 2, "--rate"},
                 {{"--slow", "Z:soon"}, 1, "Z:soon"},
                 {{"--stored", "ATX9"}, 1, "ATX9"},
                 {{"--link", dir.file("file")}, 1, "no symbolic link"},
                 {{"--exchange", dir.file("file") + "/x"}, 1, "file/x"}};
    for (const auto& one : cases) {
        PeerProcess modem(BRISOLT_MODEM, one.words, {.captureErrors = true, .inherit = -1});
        EXPECT_EQ(modem.wait(), one.code) << one.complaint;
        const std::string text = modem.readAll();
        EXPECT_NE(text.find(one.complaint), std::string::npos) << text;
    }
    PeerProcess faulty = start({"--silent", "Z:1", "--refuse", "&K3", "--verbose"});
    const auto path = faulty.readLine();
    ASSERT_TRUE(path);
    Terminal terminal(*path);
    terminal.send("ATZ\rAT&K3\rATZ\r");
    EXPECT_EQ(terminal.until("OK\r\n"), "ATZ\rAT&K3\r\r\nERROR\r\nATZ\r\r\nOK\r\n");
    EXPECT_EQ(faulty.readLine(), "command ATZ");
}

TEST(Demonstration, SucceedsAndFailsWithWhatItShows) {
    if (std::string(BRISOLT_DEMO).empty())
        GTEST_SKIP() << "the demonstration is not part of this build";
    const TempDir dir;
    PeerProcess demo = shell("TMPDIR=$2 exec $1", {BRISOLT_DEMO, dir.path().string()});
    EXPECT_EQ(demo.wait(60s), 0) << demo.readAll(1s);
    PeerProcess alone = shell("PATH=/none TMPDIR=$2 exec $1", {BRISOLT_DEMO, dir.path().string()});
    EXPECT_EQ(alone.wait(), 1);
    EXPECT_NE(alone.readAll().find("brisolt-demo: socat: "), std::string::npos);
}
