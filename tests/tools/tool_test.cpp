// The command, run as a user runs it.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <brisolt_host.h>

#include "support/peer_process.h"
#include "support/pty.h"
#include "support/temp_dir.h"

using brisolt::test::PeerProcess;
using brisolt::test::Pty;
using brisolt::test::TempDir;
using namespace std::chrono_literals;

namespace {

class Tool : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(BRISOLT_TOOL).empty())
            GTEST_SKIP() << "the command is not part of this build";
    }

    /// The command with its standard input, output and errors in our hands.
    static PeerProcess::Options everything() { return {.captureErrors = true, .inherit = -1}; }
};

} // namespace

TEST_F(Tool, ListsTheDevicesOfThisMachine) {
    std::string expected;
    char path[260], description[512];
    for (int32_t i = 0; ComHostGetDevice(i, path, sizeof path, description, sizeof description) == 1; ++i)
        expected += std::string(path) + " " + description + "\n";
    PeerProcess tool("/bin/sh", {"-c", "\"$0\" ports | sed 's/  */ /'", BRISOLT_TOOL});
    EXPECT_EQ(tool.readAll(),
              expected.empty()
                  ? "No serial devices found. A USB adapter shows up here as soon as it is plugged in.\n"
                  : "DEVICE DESCRIPTION\n" + expected);
}

TEST_F(Tool, RefusesWhatItCannotDoAndSaysWhy) {
    const TempDir dir;
    const std::string missing = dir.file("missing/name"); // the folder is not there either
    const std::string existing = dir.file("existing");
    std::ofstream(existing) << "text";
    PeerProcess far(BRISOLT_TEST_PEER, {"pty-echo"});
    const auto echo = far.readLine();
    ASSERT_TRUE(echo);
    struct Case {
        std::string script; ///< $0 is the command, $1 a missing file, $2 a file, $3 a line that echoes
        int code;
        std::string answer;
    };
    const std::vector<Case> cases = {
        {"$0", 2, "subcommand"},
        {"$0 term", 2, "device is required"},
        {"$0 term ''", 2, "device: the name is empty"},
        {"$0 term $(printf %0300d 1)", 2, "device: the name is longer than 259 bytes"},
        {"$0 term $1 --log ''", 2, "--log: the name is empty"},
        {"$0 term $1 --parity maybe", 2, "--parity"},
        {"$0 term $1 --baud 0", 2, "--baud: \"0\" is no number from 1 to 2147483647"},
        {"$0 term $1 --baud 1e3", 2, "--baud: \"1e3\" is no number from"},
        {"$0 term $1 --data 9", 2, "--data: \"9\" is no number from 4 to 8"},
        {"$0 term $1 --linger 99999999999", 2, "--linger: \"99999999999\" is no number from"},
        {"$0 term $1", 1, missing + ": No such file"},
        {"$0 term $2", 1, existing},
        {"$0 term /dev/null --log $1", 1, "brisolt: " + missing + ": No such file"},
        {"$0 term /dev/null --log ${2%/*}", 1, "brisolt: " + dir.path().string() + ": Is a directory"},
        {"chmod a-w $2; $0 term /dev/null --log $2", 1, "brisolt: " + existing},
        {"$0 term $1 --log $2.new; code=$?; ls $2.new; exit $code", 1, missing},
        {"$0 term $(printf '\\033[31m\\377')", 1, "?[31m?"},
        {"$0 ports >/dev/full", 1, "standard output: No space left"},
        {"$0 --help >&-", 1, "standard output: Bad file descriptor"},
        {"echo text | $0 term $3 >&-", 1, "standard output: Bad file descriptor"},
        {"$0 term $3 </", 1, "standard input: Is a directory"},
        {"$0 term $3 <&-", 0, ""},
        {"$0 term --help", 0, "Ctrl-] quits"},
    };
    for (const Case& each : cases) {
        PeerProcess tool("/bin/sh", {"-c", each.script, BRISOLT_TOOL, missing, existing, *echo},
                         everything());
        const std::string answer = tool.readAll();
        EXPECT_NE(answer.find(each.answer), std::string::npos) << each.script << ": " << answer;
        EXPECT_LT(answer.size(), 2500U) << each.script;
        EXPECT_EQ(answer.find('\033'), std::string::npos) << each.script;
        EXPECT_EQ(tool.wait(), each.code) << each.script;
    }
    EXPECT_FALSE(std::filesystem::exists(existing + ".new"))
        << "nothing is left of a terminal that never was";
}

TEST_F(Tool, CarriesPipedInputOverThePortAndBack) {
    const TempDir dir;
    const std::string trace = dir.file("trace");
    PeerProcess far(BRISOLT_TEST_PEER, {"pty-echo"});
    const auto path = far.readLine();
    ASSERT_TRUE(path);

    // More than a pseudo terminal holds at once, and every byte there is.
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += static_cast<char>(i * 7 / 3);
    PeerProcess tool(BRISOLT_TOOL, {"term", *path, "--baud", "115200", "--log", trace});
    ASSERT_TRUE(tool.write(text));
    tool.closeInput();
    EXPECT_EQ(tool.readAll(30s), text);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_GT(std::filesystem::file_size(trace), text.size()) << "the trace tells the bytes";
}

TEST_F(Tool, SendsLineEndsAndEchoesAsAsked) {
    Pty line;
    PeerProcess tool(BRISOLT_TOOL, {"term", line.slavePath(), "--crlf", "--echo"});
    ASSERT_TRUE(tool.write("one\ntwo\r\n\n"));
    EXPECT_EQ(line.read(12), "one\r\ntwo\r\n\r\n");
    ASSERT_EQ(line.write("answer\n"), 7U);
    // Nothing but data may wake it: the answer is there long before the input ends.
    EXPECT_EQ(tool.readLine(), "one\r");
    EXPECT_EQ(tool.readLine(), "two\r");
    EXPECT_EQ(tool.readLine(), "\r");
    EXPECT_EQ(tool.readLine(), "answer");
    tool.closeInput();
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(Tool, EndsWhenTheDeviceGoesAway) {
    Pty line;
    PeerProcess tool(BRISOLT_TOOL, {"term", line.slavePath()}, everything());
    ASSERT_TRUE(tool.write("up"));
    ASSERT_EQ(line.read(2), "up");
    line.close();
    const std::string complaint = tool.readAll();
    EXPECT_NE(complaint.find(line.slavePath()), std::string::npos) << complaint;
    EXPECT_NE(complaint.find("gone away"), std::string::npos) << complaint;
    EXPECT_EQ(tool.wait(), 1);
}

// A user whose terminal stays raw sees nothing of what he types next.
TEST_F(Tool, PutsTheLocalTerminalBackHoweverItEnds) {
    for (const bool bySignal : {false, true}) {
        Pty line, local;
        const int slave = open(local.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings{};
        tcgetattr(slave, &settings);
        settings.c_lflag |= ICANON;
        tcsetattr(slave, TCSANOW, &settings);
        const auto cooked = [slave, &settings] {
            tcgetattr(slave, &settings);
            return (settings.c_lflag & ICANON) != 0;
        };

        PeerProcess tool(
            "/bin/sh",
            {"-c", "exec \"$0\" term \"$1\" <\"$2\"", BRISOLT_TOOL, line.slavePath(), local.slavePath()},
            everything());
        const auto greeting = tool.readLine();
        EXPECT_NE(greeting.value_or("").find("Ctrl-] quits"), std::string::npos);
        for (int i = 0; i < 500 && cooked(); ++i)
            std::this_thread::sleep_for(10ms);
        // Keys go out one by one, also those that mean something to a terminal.
        local.write("\x03\x1a");
        EXPECT_EQ(line.read(2), "\x03\x1a");

        if (bySignal)
            tool.kill(SIGTERM);
        else
            local.write("\x1d");
        EXPECT_EQ(tool.wait(), bySignal ? 128 + SIGTERM : 0);
        EXPECT_TRUE(cooked());
        close(slave);
    }
}
