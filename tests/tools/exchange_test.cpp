// Files, scripts and a tap, with the programs that people have at the far end.
#include "tools/tool.h"

#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

using brisolt::test::PeerProcess;
using brisolt::test::Pty;
using brisolt::test::TempDir;
using namespace std::chrono_literals;

namespace {

std::string contents(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool appears(const std::string& path) {
    for (int i = 0; i < 1000 && !std::filesystem::exists(path); ++i)
        std::this_thread::sleep_for(10ms);
    return std::filesystem::exists(path);
}

/// A device with a program of this machine behind it.
struct Line {
    Line(const std::string& path, const std::string& program)
        : socat("/bin/sh", {"-c", "exec socat pty,raw,echo=0,link=$0 \"$1\"", path, program}) {
        there = appears(path);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    /// Its link goes with it, so that the next is not taken for it.
    ~Line() {
        socat.kill(SIGTERM);
        socat.wait();
    }
    PeerProcess socat;
    bool there;
};

} // namespace

TEST_F(Tool, ExchangesFilesWithTheProgramsOfOthers) {
    const TempDir dir;
    const std::string mine = dir.file("mine"), got = dir.file("got"), device = dir.file("device");
    std::string text = "first\n";
    for (int i = 0; text.size() < 20000; ++i)
        text += static_cast<char>(i * 11 / 3 % 256);
    struct Case {
        std::string command, far; ///< $1 the device, $2 the file that is sent, $3 that which is received
        bool padded;
    };
    const std::string folder = dir.file("far");
    std::filesystem::create_directory(folder);
    const std::vector<Case> cases = {
        {"$0 send $2 $1", "system:'cd " + folder + " && rz -b -y'", false},
        {"$0 send --protocol y $2 $1", "system:'cd " + folder + " && rb -b -y'", false},
        {"$0 send --protocol x $2 $1", "system:'cd " + folder + " && rx -b -y mine'", true},
        {"$0 receive $1 $3", "exec:'sz -b " + mine + "'", false},
        {"$0 receive --protocol y $1 $3", "exec:'sb -b -k " + mine + "'", false},
        {"$0 receive --protocol y $1 ${3%/*}/far", "exec:'sb -b -k " + mine + "'", false},
        {"$0 receive --protocol x $1 $3", "exec:'sx -b " + mine + "'", true},
    };
    std::ofstream(mine, std::ios::binary) << text;
    for (const Case& each : cases) {
        std::filesystem::remove(folder + "/mine");
        std::filesystem::remove(got);
        const Line line(device, each.far);
        ASSERT_TRUE(line.there);
        const Outcome outcome =
            shell(each.command + "; code=$?; sha256sum <$2; exit $code", {device, mine, got});
        EXPECT_EQ(outcome.code, 0) << each.command << ": " << outcome.text;
        // The far end may still be closing its file.
        std::string came;
        for (int i = 0; i < 300 && came.size() < text.size(); ++i) {
            std::this_thread::sleep_for(10ms);
            came = contents(std::filesystem::exists(got) ? got : folder + "/mine");
        }
        EXPECT_TRUE(came.substr(0, text.size()) == text) << each.command << ": " << came.size() << " bytes";
        EXPECT_EQ(came.find_first_not_of('\x1a', text.size()), std::string::npos) << each.command;
        EXPECT_TRUE(each.padded || came.size() == text.size()) << each.command;
        const std::string digest = outcome.text.substr(outcome.text.size() - 68, 64); // of sha256sum
        EXPECT_TRUE(each.padded || outcome.text.find("sha256 " + digest) != std::string::npos)
            << outcome.text;
    }
}

TEST_F(Tool, SendsTextAsItStandsAndReceivesItWhole) {
    const TempDir dir;
    const std::string mine = dir.file("mine"), got = dir.file("got"), device = dir.file("device");
    std::ofstream(mine, std::ios::binary) << "one\ntwo\r\nthree";
    PeerProcess socat("/bin/sh",
                      {"-c", "exec socat pty,raw,echo=0,link=$0 pty,raw,echo=0,link=$0.far", device});
    ASSERT_TRUE(appears(device) && appears(device + ".far"));
    const std::vector<std::string> names = {device, mine, got};
    EXPECT_EQ(shell("$0 receive --protocol text $1.far $3 & "
                    "sleep 1; $0 send --protocol text --line-delay 10 $2 $1 && wait $!",
                    names)
                  .code,
              0);
    EXPECT_EQ(contents(got), contents(mine));
    EXPECT_EQ(shell("$0 receive --protocol t $1.far $3 --quiet-ends --timeout 5 & "
                    "sleep 1; printf 'no end' | $0 term $1 && wait $!",
                    names)
                  .code,
              0);
    EXPECT_EQ(contents(got), "no end");

    // What fails leaves what was there before, and nothing else.
    for (const std::string protocol : {"text", "zmodem"}) {
        const std::string receive = "$0 receive --protocol " + protocol + " $1.far $3";
        EXPECT_EQ(shell(receive + " --timeout 1", names).code, 4) << protocol;
        EXPECT_EQ(
            shell("(printf half; sleep 1) | $0 term $1 & timeout -s INT 1 " + receive + "; wait", names).code,
            0);
        EXPECT_EQ(shell(receive + " & child=$!; sleep 1; kill -TERM $child; wait $child", names).code, 143)
            << protocol;
        EXPECT_EQ(contents(got), "no end");
    }
    EXPECT_EQ(shell("ls -A ${1%/*}", names).text, "device\ndevice.far\ngot\nmine\n");
}

// The program that scripts are written for is the judge of what they do, both at once, each with a modem of its own.
TEST_F(Tool, RunsChatScriptsAsTheirOwnProgramDoes) {
    const std::string chat = shell("PATH=$PATH:/usr/sbin command -v chat | tr -d '\\n'").text;
    if (chat.empty() || std::string(BRISOLT_MODEM).empty())
        GTEST_SKIP() << "chat or the simulated modem is not here";
    const TempDir dir;
    const std::string theirs = dir.file("theirs"), ours = dir.file("ours"), script = dir.file("script");
    const auto modem = [](const std::string& link) {
        return std::vector<std::string>{"--busy", "300", "--link", link, "--time-scale", "10"};
    };
    PeerProcess one(BRISOLT_MODEM, modem(theirs)), other(BRISOLT_MODEM, modem(ours));
    ASSERT_TRUE(one.readLine() && other.readLine());
    std::ofstream(script)
        << "# a comment\nABORT\t\"NO CARRIER\"\n'' AT\\sE0\nOK \"ATI\\c\"\nTIMEOUT 30 '' \\r OK ''\n";
    const std::vector<std::string> scripts = {
        "ABORT BUSY '' ATZ OK 'ATE0' OK '\\c'",
        "ABORT ERROR ABORT BUSY '' ATDT300 CONNECT ''",
        "ABORT BUSY ABORT ERROR '' ATDT300 CONNECT ''",
        "ABORT BUSY CLR_ABORT BUSY TIMEOUT 1 '' ATDT300 CONNECT ''",
        "TIMEOUT 1 '' AT FOO",
        "FOO-AT-BAR-AT-OK ''",
        "'' 'A\\124' 'O^K\\K' ''",
        "'' 'AT\\p\\d' 'OK\\r\\n' '@" + script + ".none'",
        "SAY hello '' AT 'OK\\r\\n' EOT",
        "REPORT OK '' AT OK AT OK ''",
        "-f " + script,
        "-T 300 -f /etc/chatscripts/pap",       // of the package that chat is in
        "-T internet -f /etc/chatscripts/gprs", // its eighth ABORT comes
        "-f " + script + ".none",
    };
    for (const std::string& each : scripts) {
        // On a machine that stands still an answer may come behind the end of the time: then there is more of it.
        Outcome both{1, ""};
        for (int seconds = 1; both.code != 0 && seconds <= 15; seconds += 14) {
            const std::string words = " -t " + std::to_string(seconds) + " -s " + each;
            both = shell("$3" + words + " <$1 >$1 & $0 chat $2" + words +
                             "; ours=$?; wait $!; theirs=$?; echo $theirs $ours; test $theirs = $ours",
                         {theirs, ours, chat});
        }
        EXPECT_EQ(both.code, 0) << each << "\n" << both.text;
    }
    EXPECT_EQ(shell("$0 chat $1 SAY 'hello\\n' REPORT OK '' AT OK AT OK ''", {ours}).text, "hello\nOK\nOK\n");
}

// The program is one of those that people have.
TEST_F(Tool, TapsWhatAProgramAndItsDeviceSay) {
    if (shell("command -v picocom").code != 0)
        GTEST_SKIP() << "picocom is not here";
    const TempDir dir;
    const std::string link = dir.file("end"), pcap = dir.file("pcap");
    Pty device;
    PeerProcess tap(BRISOLT_TOOL, {"tap", device.slavePath(), "--link", link, "--pcap", pcap}, everything());
    ASSERT_NE(tap.readLine().value_or("").find("the program opens " + link), std::string::npos);
    PeerProcess program("/bin/sh", {"-c", "exec picocom -q -b 9600 $0", link}, everything());
    EXPECT_NE(tap.readLine().value_or("").find(" = 9600 8N1"), std::string::npos);
    const Outcome second = shell("$0 term $1", {link});
    EXPECT_EQ(second.code, 1);
    EXPECT_NE(second.text.find("busy; held by process " + std::to_string(program.id()) + " (picocom)"),
              std::string::npos)
        << second.text;
    ASSERT_TRUE(program.write("ask\r\n"));
    EXPECT_EQ(device.read(5), "ask\r\n");
    EXPECT_NE(tap.readLine().value_or("").find(" > ask\\r\\n"), std::string::npos);
    device.write("answer\n");
    EXPECT_EQ(program.readLine(), "answer");
    EXPECT_NE(tap.readLine().value_or("").find(" < answer"), std::string::npos);
    // A second change is told only when the tap has seen to it that it hears of one.
    ASSERT_TRUE(program.write("\x01\x15")); // Ctrl-A Ctrl-U: the next higher rate
    EXPECT_NE(tap.readLine().value_or("").find(" = 19200 8N1"), std::string::npos);
    termios line{};
    tcgetattr(device.master(), &line);
    EXPECT_EQ(cfgetospeed(&line), B19200);
    tap.kill(SIGTERM);
    EXPECT_EQ(tap.wait(), 128 + SIGTERM);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    const std::string capture = contents(pcap);
    ASSERT_EQ(capture.size(), 24U + 2 * (16 + 12) + 5 + 7);
    EXPECT_EQ(capture[20], static_cast<char>(250));
    EXPECT_EQ(capture.substr(24 + 16 + 12, 5), "ask\r\n");
}
