// Files, scripts and a tap, with the programs that people have at the far end.
#include "tools/tool.h"

namespace {

bool appears(const std::string& path) {
    return eventually([&] { return std::filesystem::exists(path); });
}

} // namespace

TEST_F(Tool, ExchangesFilesWithTheProgramsOfOthers) {
    const Files files;
    const std::string text = "first\n" + pattern(20000) + "!";
    const std::string mine = files.make("mine", text), got = files.path("got"), device = files.path("device"),
                      folder = files.path("far");
    std::filesystem::create_directory(folder);
    // $1 is the device, $2 the file that is sent, $3 that which is received; the far end, and whether it pads.
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"$0 send $2 $1", "system:'cd " + folder + " && rz -b -y'", false},
        {"$0 send --protocol y $2 $1", "system:'cd " + folder + " && rb -b -y'", false},
        {"$0 send --protocol x $2 $1", "system:'cd " + folder + " && rx -b -y mine'", true},
        {"$0 receive $1 $3", "exec:'sz -b " + mine + "'", false},
        {"$0 receive --protocol y $1 $3", "exec:'sb -b -k " + mine + "'", false},
        {"$0 receive --protocol y $1 ${3%/*}/far", "exec:'sb -b -k " + mine + "'", false},
        {"$0 receive --protocol x $1 $3", "exec:'sx -b " + mine + "'", true},
    };
    for (const auto& [command, far, padded] : cases) {
        std::filesystem::remove(folder + "/mine");
        std::filesystem::remove(got);
        PeerProcess socat("/bin/sh", {"-c", "exec socat pty,raw,echo=0,link=$0 \"$1\"", device, far});
        ASSERT_TRUE(appears(device));
        const Outcome outcome = shell(command + "; code=$?; sha256sum <$2; exit $code", {device, mine, got});
        EXPECT_EQ(outcome.code, 0) << command << ": " << outcome.text;
        std::string came;
        eventually([&] { // the far end may still be closing its file
            came = contentsOf(std::filesystem::exists(got) ? got : folder + "/mine");
            return came.size() >= text.size();
        });
        EXPECT_TRUE(came.substr(0, text.size()) == text) << command << ": " << came.size() << " bytes";
        EXPECT_EQ(came.find_first_not_of('\x1a', text.size()), std::string::npos) << command;
        EXPECT_TRUE(padded || came.size() == text.size()) << command;
        const std::string told = outcome.text, digest = told.substr(told.size() - 68, 64); // of sha256sum
        EXPECT_TRUE(padded || told.find("sha256 " + digest) != std::string::npos) << told;
        socat.kill(SIGTERM); // its link goes with it, so that the next is not taken for it
        socat.wait();
    }
}

TEST_F(Tool, SendsTextAsItStandsAndReceivesItWhole) {
    const Files files;
    const std::string text = "one\ntwo\r\nthree", mine = files.make("mine", text);
    const std::string got = files.path("got"), device = files.path("device");
    PeerProcess socat("/bin/sh",
                      {"-c", "exec socat pty,raw,echo=0,link=$0 pty,raw,echo=0,link=$0.far", device});
    ASSERT_TRUE(appears(device) && appears(device + ".far"));
    const std::string zmodem = "$0 receive --protocol zmodem $1.far $3",
                      receive = "$0 receive --protocol text $1.far $3";
    const std::tuple<std::string, int, std::string> steps[] = {
        {receive + " & sleep 1; $0 send --protocol text --line-delay 10 $2 $1 && wait $!", 0, text},
        {receive + " --quiet-ends --timeout 5 & sleep 1; printf 'no end' | $0 term $1 && wait $!", 0,
         "no end"},
        // What fails leaves what was there before, and nothing else.
        {receive + " --timeout 1", 4, "no end"},
        {zmodem + " --timeout 1", 4, "no end"},
        {"(printf half; sleep 1) | $0 term $1 & timeout -s INT 1 " + receive + "; wait", 0, "no end"},
        {"(printf half; sleep 1) | $0 term $1 & timeout -s INT 1 " + zmodem + "; wait", 0, "no end"},
        {receive + " & child=$!; sleep 1; kill -TERM $child; wait $child", 143, "no end"},
        {zmodem + " & child=$!; sleep 1; kill -TERM $child; wait $child", 143, "no end"},
    };
    for (const auto& [script, code, left] : steps) {
        EXPECT_EQ(shell(script, {device, mine, got}).code, code) << script;
        EXPECT_EQ(contentsOf(got), left) << script;
    }
    EXPECT_EQ(shell("ls -A ${1%/*}", {device}).text, "device\ndevice.far\ngot\nmine\n");
}

// The program that scripts are written for is the judge of what they do, both at once, each with a modem of its own.
TEST_F(Tool, RunsChatScriptsAsTheirOwnProgramDoes) {
    const std::string chat = shell("PATH=$PATH:/usr/sbin command -v chat | tr -d '\\n'").text;
    if (chat.empty() || std::string(BRISOLT_MODEM).empty())
        GTEST_SKIP() << "chat or the simulated modem is not here";
    const Files files;
    const std::string theirs = files.path("theirs"), ours = files.path("ours");
    const std::string script = files.make(
        "script", "# a comment\nABORT\t\"NO CARRIER\"\n'' AT\\sE0\nOK \"ATI\\c\"\nTIMEOUT 30 '' \\r OK ''\n");
    const auto modem = [](const std::string& link) {
        return std::vector<std::string>{"--busy", "300", "--link", link, "--time-scale", "10"};
    };
    PeerProcess one(BRISOLT_MODEM, modem(theirs)), other(BRISOLT_MODEM, modem(ours));
    ASSERT_TRUE(one.readLine() && other.readLine());
    const std::string scripts[] = {
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
    const Files files;
    const std::string link = files.path("end"), pcap = files.path("pcap");
    Pty device;
    PeerProcess tap(BRISOLT_TOOL, {"tap", device.slavePath(), "--link", link, "--pcap", pcap}, everything());
    const auto tells = [&tap](const std::string& text) {
        const std::string line = tap.readLine().value_or("");
        EXPECT_NE(line.find(text), std::string::npos) << line << " instead of " << text;
    };
    tells("the program opens " + link);
    PeerProcess program("/bin/sh", {"-c", "exec picocom -q -b 9600 $0", link}, everything());
    tells(" = 9600 8N1");
    const std::string holder = "busy; held by process " + std::to_string(program.id()) + " (picocom)";
    const Outcome second = shell("$0 term $1", {link});
    EXPECT_EQ(second.code, 1);
    EXPECT_NE(second.text.find(holder), std::string::npos) << second.text;
    ASSERT_TRUE(program.write("ask\r\n"));
    EXPECT_EQ(device.read(5), "ask\r\n");
    tells(" > ask\\r\\n");
    device.write("answer\n");
    EXPECT_EQ(program.readLine(), "answer");
    tells(" < answer");
    // A second change is told only when the tap has seen to it that it hears of one.
    ASSERT_TRUE(program.write("\x01\x15")); // Ctrl-A Ctrl-U: the next higher rate
    tells(" = 19200 8N1");
    termios line{};
    tcgetattr(device.master(), &line);
    EXPECT_EQ(cfgetospeed(&line), B19200);
    tap.kill(SIGTERM);
    EXPECT_EQ(tap.wait(), 128 + SIGTERM);
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    const std::string capture = files.bytes("pcap");
    ASSERT_EQ(capture.size(), 24U + 2 * (16 + 12) + 5 + 7);
    EXPECT_EQ(capture[20], static_cast<char>(250));
    EXPECT_EQ(capture.substr(24 + 16 + 12, 5), "ask\r\n");
}
