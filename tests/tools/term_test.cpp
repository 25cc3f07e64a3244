// brisolt term at a real terminal: keys, the screen, and what is left of it all.
#include "tools/tool.h"

#include <sys/ioctl.h>

TEST_F(Tool, DoesWhatItsKeysSay) {
    const Files files;
    const std::string log = files.path("log"), file = files.make("file", "text of the file");
    User user("term loop:a 57600");
    ASSERT_TRUE(user.sees("57600 8N1. Ctrl-] quits, Ctrl-T ? lists the keys.")) << user.screen;
    ASSERT_TRUE(user.becomesRaw());
    const std::pair<std::string, std::string> steps[] = {
        {"\x03\x1a hello\r", "\x03\x1a hello\r"}, // keys that mean something to a terminal, too
        {"\x14?", "suspend"},
        {"\024d", "DTR off"},
        {"\x14\x12", "RTS off"}, // Ctrl held on
        {"\x14i", "DTR off, RTS off, CTS off, DSR off"},
        {"\024b", "break sent"},
        {"\x14u9601\1770\r", "9600 8N1"},
        {"\x14u\x1b", "\r\n"},
        {"\x14uabc\r", "\"abc\" is no rate"},
        {"\024eab", "abab"},
        {"\024e\x14xhello", "68 65 6c 6c 6f "},
        {"\x14x", "|hello|"},
        {"\x14tx\r\n", "] x\r\n"},
        {"\x14t\x14t\x14t", "time stamps: off"},
        {"\x14hxy\r", "\"xy\" is no hex"},
        {"\x14h68 65:79\r", "hey"},
        {"\x14nx\ny\rz\r\n.", "on]\r\nx\r\ny\r\nz\r\n."},
        {"\x14phidden", "paused"},
        {"\x14p", "hidden"},
        {"\x14l" + log + "\r", "log on"},
        {"kept", "kept"},
        {"\x14l", "log off"},
        {"\x14s" + file + "\rt\r", "done: 16 bytes"},
        {"", "text of the file\x1a"},
        {"\x14s" + files.path("none") + "\rz\r", "none: No such file"},
        {"\x14g" + files.path("received") + "\rt\r", "Ctrl-C gives up"},
        {"\x03", "given up"},
        {"\x14\x14\x14\x1d", "\x14\x1d"},
    };
    for (const auto& [keys, seen] : steps) {
        user.keys(keys);
        ASSERT_TRUE(user.sees(seen)) << keys << ": " << user.screen;
    }
    user.keys("\x1d");
    EXPECT_EQ(user.process->wait(), 0);
    EXPECT_TRUE(user.asBefore());
    EXPECT_EQ(files.bytes("log"), "kept");
    EXPECT_EQ(files.count(), 2) << "nothing is left of a file that did not come";
}

// A user whose terminal stays raw sees nothing of what he types next.
TEST_F(Tool, PutsTheLocalTerminalBackHoweverItEnds) {
    constexpr int byKey = 0, byDevice = 3, byHangUp = 128 + SIGHUP, bySignal = 128 + SIGTERM; // exit codes
    for (const int way : {byKey, bySignal, byHangUp, byDevice}) {
        Pty line;
        User user("term " + line.slavePath() + " --quit-key ctrl-a");
        ASSERT_TRUE(user.becomesRaw());
        user.keys("up");
        ASSERT_EQ(line.read(2), "up");
        if (way == byKey)
            user.keys("last\x01");
        else if (way == byDevice)
            line.close();
        else
            user.process->kill(way - 128);
        EXPECT_EQ(user.process->wait(), way);
        EXPECT_TRUE(user.asBefore()) << way;
        EXPECT_TRUE(way != byDevice || user.sees("the device has gone away")) << user.screen;
        EXPECT_TRUE(way != byKey || line.read(4) == "last") << "what was typed before the end is sent";
    }
}

TEST_F(Tool, GoesToSleepWithATerminalThatIsAsItWas) {
    for (const bool byKey : {true, false}) {
        User user("term loop:a");
        ASSERT_TRUE(user.becomesRaw());
        if (byKey)
            user.keys("\x14z");
        else
            user.process->kill(SIGTSTP);
        const std::string status = "/proc/" + std::to_string(user.process->id()) + "/status";
        EXPECT_TRUE(eventually([&] { return contentsOf(status).find("T (stopped)") != std::string::npos; }));
        EXPECT_TRUE(user.asBefore());
        user.process->kill(SIGCONT);
        EXPECT_TRUE(user.becomesRaw());
        const winsize narrow{10, 20, 0, 0};
        ioctl(user.terminal.master(), TIOCSWINSZ, &narrow);
        user.keys("awake");
        EXPECT_TRUE(user.sees("awake"));
        user.keys("\x1d");
        EXPECT_EQ(user.process->wait(), 0);
        EXPECT_TRUE(user.asBefore());
    }
}

TEST_F(Tool, TakesALongPasteAndStillHearsTheQuitKey) {
    Pty line;
    User user("term " + line.slavePath());
    ASSERT_TRUE(user.becomesRaw());
    std::string text;
    while (text.size() < 100000)
        text += "line " + std::to_string(text.size()) + "\r";
    // Nobody reads at the far end meanwhile.
    ASSERT_EQ(user.terminal.write(text, 20s), text.size());
    EXPECT_EQ(line.read(text.size(), 30s), text);
    ASSERT_EQ(user.terminal.write(text, 20s), text.size());
    user.keys("\x1d");
    EXPECT_EQ(user.process->wait(), 0);
    EXPECT_TRUE(user.asBefore());
}

TEST_F(Tool, KeepsADeviceThatGoesAndComesBack) {
    const Files files;
    const std::string link = files.path("device");
    std::optional<Pty> line(std::in_place);
    std::filesystem::create_symlink(line->slavePath(), link);
    User user("term --keep " + link);
    ASSERT_TRUE(user.becomesRaw());
    user.keys("one");
    ASSERT_EQ(line->read(3), "one");
    std::filesystem::remove(link);
    line.reset();
    ASSERT_TRUE(user.sees(link + " has gone; waiting for it")) << user.screen;
    line.emplace();
    std::filesystem::create_symlink(line->slavePath(), link);
    ASSERT_TRUE(user.sees(link + " is back")) << user.screen;
    user.keys("two");
    EXPECT_EQ(line->read(3), "two");
    line->write("three");
    EXPECT_TRUE(user.sees("three"));
    user.keys("\x1d");
    EXPECT_EQ(user.process->wait(), 0);
}
