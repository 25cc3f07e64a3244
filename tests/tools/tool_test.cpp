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

#include "support/peer_process.h"
#include "support/pty.h"
#include "support/temp_dir.h"

#ifndef BRISOLT_TOOL
#define BRISOLT_TOOL ""
#endif

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

TEST_F(Tool, TellsAboutPortsAndUsage) {
    PeerProcess ports(BRISOLT_TOOL, {"ports"});
    EXPECT_FALSE(ports.readAll().empty()) << "also a machine without ports gets a line";
    EXPECT_EQ(ports.wait(), 0);

    const std::vector<std::vector<std::string>> nonsense = {
        {}, {"term"}, {"term", "/dev/null", "--parity", "maybe"}, {"term", "/dev/null", "--baud", "0"}};
    for (const auto& words : nonsense) {
        PeerProcess tool(BRISOLT_TOOL, words, everything());
        EXPECT_FALSE(tool.readAll().empty());
        EXPECT_EQ(tool.wait(), 2);
    }
}

TEST_F(Tool, NamesTheDeviceThatItCannotOpen) {
    const TempDir dir;
    const std::string missing = dir.file("no-such-device");
    PeerProcess tool(BRISOLT_TOOL, {"term", missing}, everything());
    const std::string complaint = tool.readAll();
    EXPECT_NE(complaint.find(missing), std::string::npos) << complaint;
    EXPECT_NE(complaint.find("No such file"), std::string::npos) << complaint;
    EXPECT_EQ(tool.wait(), 1);
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
