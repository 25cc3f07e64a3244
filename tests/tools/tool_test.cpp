// The command, run as a user runs it.
#include "tools/tool.h"

TEST_F(Tool, ListsTheDevicesOfThisMachine) {
    std::string expected;
    char path[260];
    for (int32_t i = 0; ComHostGetDevice(i, path, sizeof path, nullptr, 0) == 1; ++i)
        expected += std::string(path) + "\n";
    EXPECT_EQ(shell("$0 ports --names").text, expected);
    EXPECT_EQ(shell("COLUMNS=500 $0 ports | tail -n +2 | awk '{print $1}'").text, expected);
    // The table says the same as the records, column for column.
    EXPECT_EQ(
        shell("COLUMNS=500 $0 ports | tail -n +2 | awk '{print $1, $2, $3, $4}'").text,
        shell("$0 ports --json | python3 -c 'import json,sys\n"
              "for each in json.load(sys.stdin):\n"
              "  usb = each.get(\"vid\") is not None and \"%04x:%04x\" % (each[\"vid\"], each[\"pid\"])\n"
              "  print(each[\"device\"], usb or \"-\", each.get(\"serial\") or \"-\", each[\"driver\"] or "
              "\"-\")'")
            .text);
    const Outcome none = shell("$0 ports nothing-is-named-so");
    EXPECT_EQ(none.code, 1);
    EXPECT_NE(none.text.find("no serial device fits"), std::string::npos) << none.text;
}

TEST_F(Tool, RefusesWhatItCannotDoAndSaysWhy) {
    const Files files;
    const std::string missing = files.path("missing/name"); // the folder is not there either
    const std::string existing = files.make("existing", "text"), folder = files.path("");
    PeerProcess far(BRISOLT_TEST_PEER, {"pty-echo"});
    const auto echo = far.readLine();
    ASSERT_TRUE(echo);
    // $0 is the command, $1 a missing file, $2 a file, $3 a line that echoes. Exit code, and what is told.
    const std::tuple<std::string, int, std::string> cases[] = {
        {"$0", 2, "subcommand"},
        {"$0 term ''", 2, "device: the name is empty"},
        {"$0 term $(printf %0300d 1)", 2, "device: the name is longer than 259 bytes"},
        {"$0 term $1 --log ''", 2, "--log: the name is empty"},
        {"$0 term $1 --parity maybe", 2, "\"maybe\" is none of none, odd, even, mark, space"},
        {"$0 term $1 -b 0", 2, "\"0\" is no number from 1 to 2147483647"},
        {"$0 term $1 --linger 99999999999", 2, "--linger: \"99999999999\" is no number from"},
        {"$0 term $1 --quit-key ctrl-", 2, "\"ctrl-\" is no key"},
        {"$0 term $1 --send '\\q'", 2, "\\q is no escape"},
        {"$0 term $1 --expect ''", 2, "an empty text comes at once"},
        {"$0 term $1 --send a --until b", 2, "give one of them"},
        {"$0 term $1 --timeout 3", 2, "--timeout needs"},
        {"$0 term $1", 1, missing + ": No such file"},
        {"$0 term $2", 1, existing},
        {"$0 term \"$3?colour=blue\"", 1, "colour"},
        {"$0 term /dev/null --log $1", 1, "brisolt: " + missing + ": No such file"},
        {"$0 term /dev/null --trace $1", 1, "brisolt: " + missing + ": No such file"},
        {"$0 term /dev/null --log ${2%/*}/", 1, "brisolt: " + folder + ": Is a directory"},
        {"chmod a-w $2; $0 term /dev/null --log $2", 1, "brisolt: " + existing},
        {"$0 term $1 --log $2.new; code=$?; ls $2.new; exit $code", 1, missing},
        {"$0 term $(printf '\\033[31m\\377')", 1, "?[31m?"},
        {"$0 ports >/dev/full", 1, "standard output: No space left"},
        {"$0 --help >&-", 1, "standard output: Bad file descriptor"},
        {"echo text | $0 term $3 >&-", 1, "standard output: Bad file descriptor"},
        {"$0 term $3 </", 1, "standard input: Is a directory"},
        {"$0 term $3 <&-", 0, ""},
        {"$0 term --help", 0, "Ctrl-] quits"},
        {"$0 --version", 0, "brisolt 5."},
        {"$0 send $1 $3", 1, missing + ": No such file"},
        {"$0 send ${2%/*} $3", 1, "not a file that can be sent"},
        {"PATH=/none $0 send $2 $3", 1, "install lrzsz"},
        {"$0 receive $3 $1", 1, "missing: No such file"},
        {"$0 receive -h", 0, "--quiet-ends"},
        {"$0 receive $3 ${2%/*} --protocol xmodem", 1, "tells no names"},
        {"$0 lines $3", 1, *echo + ": the device has no modem lines"},
        {"$0 monitor", 2, "device is required"},
        {"$0 tap $3 --pcap $1", 1, missing + ": No such file"},
        {"$0 tap $3 --link $2", 1, existing + ": is there already"},
        {"$0 chat $3", 1, "give a script"},
        {"$0 chat $1 '' ''", 2, missing + ": No such file"},
    };
    for (const auto& [script, code, answer] : cases) {
        const Outcome outcome = shell(script, {missing, existing, *echo});
        EXPECT_NE(outcome.text.find(answer), std::string::npos) << script << ": " << outcome.text;
        EXPECT_LT(outcome.text.size(), 4500U) << script;
        EXPECT_EQ(outcome.text.find('\033'), std::string::npos) << script;
        EXPECT_EQ(outcome.code, code) << script << ": " << outcome.text;
    }
    EXPECT_EQ(files.count(), 1) << "nothing is left of a terminal that never was";
}

TEST_F(Tool, NamesTheGroupThatMayOpenADevice) {
    if (shell("setpriv --reuid=nobody --regid=nogroup --clear-groups test -x $0").code != 0)
        GTEST_SKIP() << "nobody else can run the command here, or we cannot be somebody else";
    const Pty line;
    const std::pair<std::string, std::string> cases[] = {
        {"660 nobody --clear-groups", "; group sys may open it and you are not in it\n"},
        {"660 sys --clear-groups", "; group sys may open it and you are in it from your next login on\n"},
        {"600 nobody --groups=sys", "; only its owner may open it\n"},
        {"660 nobody --groups=sys", ""},
    };
    for (const auto& [how, answer] : cases) {
        const std::string text = shell("set -- $1 $2; chgrp sys $1 && chmod $2 $1 && exec setpriv --reuid=$3 "
                                       "--regid=nogroup $4 $0 term $1",
                                       {line.slavePath(), how})
                                     .text;
        const std::string refusal = "brisolt: cannot open " + line.slavePath() + ": Permission denied";
        EXPECT_EQ(text, answer.empty() ? "" : refusal + answer);
    }
}

TEST_F(Tool, CarriesPipedInputOverThePortAndBack) {
    const Files files;
    PeerProcess far(BRISOLT_TEST_PEER, {"pty-echo"});
    const auto path = far.readLine();
    ASSERT_TRUE(path);

    const std::string text = pattern(100000); // more than a pseudo terminal holds at once
    PeerProcess tool(BRISOLT_TOOL,
                     {"term", *path, "--trace", files.path("trace"), "--log", files.path("log")});
    ASSERT_TRUE(tool.write(text));
    tool.closeInput();
    EXPECT_EQ(tool.readAll(30s), text);
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_GT(files.bytes("trace").size(), text.size()) << "the trace tells the bytes";
    EXPECT_EQ(files.bytes("log"), text);
}

// What comes back from a port that hears itself.
TEST_F(Tool, IsAFilterThatEndsWhenTheAnswerHasCome) {
    const std::tuple<std::string, int, std::string> cases[] = {
        {"printf 'one\\ntwo\\r\\n\\n' | $0 term loop:a --eol crlf", 0, "one\r\ntwo\r\n\r\n"},
        {"printf 'a\\n' | $0 term loop:a --eol cr --echo", 0, "a\ra\r"},
        {"printf 'a\\rb\\r\\nc\\n' | $0 term loop:a --any-eol", 0, "a\nb\nc\n"},
        {"printf 'ab' | $0 term loop:a --hex", 0, "61 62 " + std::string(42, ' ') + " |ab|\r\n"},
        {"printf 'a\\nb' | $0 term loop:a --timestamps | sed 's/[0-9]/9/g'", 0,
         "[99:99:99.999] a\n[99:99:99.999] b"},
        {"$0 term loop:a --send 'AT\\r\\x41' --expect '\\rA' <&-", 0, "AT\rA"},
        {"$0 term loop:a --send AT --expect OK --timeout 0.3", 4,
         "ATbrisolt: loop:a: \"OK\" has not come in time\n"},
    };
    for (const auto& [script, code, answer] : cases) {
        const Outcome outcome = shell(script);
        EXPECT_EQ(outcome.text, answer) << script;
        EXPECT_EQ(outcome.code, code) << script;
    }
    // The input does not end by itself: only the answer can end this.
    PeerProcess tool(BRISOLT_TOOL, {"term", "loop:a", "--until", "ready"});
    ASSERT_TRUE(tool.write("a\nrea"));
    EXPECT_EQ(tool.readLine(), "a");
    ASSERT_TRUE(tool.write("dy"));
    EXPECT_EQ(tool.readAll(), "ready");
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(Tool, ShowsLinesAndRates) {
    EXPECT_EQ(shell("$0 lines loop:a --dtr off").text, "DTR off, RTS on, CTS on, DSR off, DCD off, RI off\n");
    PeerProcess far(BRISOLT_TEST_PEER, {"pty-echo"});
    const auto path = far.readLine();
    ASSERT_TRUE(path);
    Pty line;
    PeerProcess monitor(BRISOLT_TOOL, {"monitor", "--json", "--keep", line.slavePath(), *path}, everything());
    ASSERT_TRUE(monitor.readLine());
    ASSERT_EQ(line.write("12345678"), 8U);
    std::string seen;
    for (int i = 0; i < 5 && seen.find("\"received\": 8") == std::string::npos; ++i)
        seen = monitor.readLine().value_or("");
    EXPECT_NE(seen.find("\"received\": 8"), std::string::npos) << seen;
    monitor.kill(SIGINT);
    EXPECT_EQ(monitor.wait(), 130);
}
