// The log files of a port byte by byte, what their functions answer, and who may have a file at a time.
#include <atomic>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#include "diag/standing_clock.h"
#include "platform/file.h"
#include "port/log_file.h"
#include "port/trace.h"
#include "support/peer_process.h"

namespace brisolt {
namespace {

const std::string stamp = "\r\n[11/19/26 04:51:58:7 p3]";

std::string repeated(const std::string& item, int count) {
    std::string text;
    while (count-- > 0)
        text += item;
    return text;
}

class Logs : public test::StandingClock {
protected:
    /// What was added to the log since the last look.
    std::string added() {
        std::string all = contents(path);
        return all.substr(std::exchange(seen, all.size()));
    }
    void debugOn() {
        ASSERT_EQ(ComSetDebugFile(3, path.c_str(), "T"), 1);
        added();
    }

    std::string path = directory.file("log.txt");
    std::size_t seen = 0;
};

TEST_F(Logs, SwitchingOnAppendsAHeader) {
    std::ofstream(path) << "kept";
    EXPECT_EQ(ComSetDebugFile(3, path.c_str(), "My title"), 1);
    EXPECT_EQ(added(), "kept" + header("DEBUG FILE - My title"));
    EXPECT_EQ(ComSetProtocolDebugFile(3, path.c_str(), nullptr), 1);
    EXPECT_EQ(added(), header("PROTOCOL DEBUG FILE - Protocol:"));
    EXPECT_EQ(ComSetPortDebugFile(3, path.c_str()), 1);
    EXPECT_EQ(added(), "  \r\n\r\nOPEN PORT DEBUG FILE Version 5.30\r\n ");

    EXPECT_EQ(ComSetDebugFile(3, "", "T"), 1);
    EXPECT_EQ(ComSetPortDebugFile(3, nullptr), 1);
    EXPECT_EQ(ComWriteDebugFileString(3, "x"), 0);
    trace(*port, "x");
    EXPECT_EQ(added(), "");
}

TEST_F(Logs, EntriesGoToTheirFileInTheirForm) {
    std::string verify = directory.file("verify.txt"), protocol = directory.file("protocol.txt");
    debugOn();
    ComSetDebugVerifyFile(3, verify.c_str(), "V");
    ComSetProtocolDebugFile(3, protocol.c_str(), "P");
    EXPECT_EQ(ComWriteDebugVerifyFile(3, "v%d", 1), 1);
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "p%d", 1), 1);
    EXPECT_EQ(contents(verify), header("DEBUG FILE - V") + stamp + "v1");
    EXPECT_EQ(contents(protocol), header("PROTOCOL DEBUG FILE - Protocol:P") + stamp + "p1");
    EXPECT_EQ(added(), "");

    EXPECT_EQ(ComWriteDebugFile(3, "%s %5d %-4u| %04x %#lX %c%%", "text", -7, 8u, 0xabu, 0xcdul, 'z'), 1);
    EXPECT_EQ(added(), stamp + "text    -7 8   | 00ab 0XCD z%");
    EXPECT_EQ(ComWriteDebugFileString(3, "100%s"), 1);
    EXPECT_EQ(ComWriteDebugFileStringLF(3, "below"), 1);
    EXPECT_EQ(ComWriteDebugFileStringNL(3, "bare"), 1);
    EXPECT_EQ(ComWriteDebugVerifyFileString(3, "100%n%s"), 1);
    EXPECT_EQ(added(), stamp + "100%s" + stamp + "\r\nbelow" + "\r\nbare" + stamp + "100%n%s");

    std::string text(5000, 'a');
    ComWriteDebugFile(3, "%s", text.c_str());
    ComWriteDebugVerifyFileString(3, text.c_str());
    ComWriteDebugFileString(3, text.c_str());
    EXPECT_EQ(added(), stamp + text.substr(0, 1023) + stamp + text.substr(0, 1023) + stamp + text);
}

TEST_F(Logs, Dumps) {
    debugOn();
    std::vector<uint8_t> zeros(2000);
    EXPECT_EQ(ComWriteDebugFileStringHEX(3, zeros.data(), 600), 1);
    std::string line = repeated("<0> ", 18) + "\r\n";
    EXPECT_EQ(added(), stamp + repeated(line, 27) + repeated("<0> ", 500 - 27 * 18));
    EXPECT_EQ(ComWriteDebugVerifyFileStringHEX(3, "A%\r\x1e\x1f~\x7f", 7), 1);
    EXPECT_EQ(added(), stamp + "A % <d> <1e> \x1f ~ <7f> ");
    // 36 characters weigh 72: the break comes before the next one.
    std::string text(750, 'b');
    EXPECT_EQ(ComWriteDebugVerifyFileStringHEX(3, text.c_str(), 750), 1);
    std::string whole = repeated(repeated("b ", 36) + "\r\n", 20) + repeated("b ", 30);
    EXPECT_EQ(added(), stamp + whole.substr(0, 1023));

    ComSetProtocolDebugFile(3, path.c_str(), "P");
    added();
    EXPECT_EQ(ComWriteProtocolDebugFileStringHEX(3, zeros.data(), 2000), 1);
    whole = repeated(repeated("<0>", 18) + "\r\n", 30);
    EXPECT_EQ(added(), stamp + whole.substr(0, 1023));

    EXPECT_EQ(ComWriteDebugFileStringHEX(3, nullptr, 0), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileStringHEX(3, zeros.data(), -5), 1);
    EXPECT_EQ(added(), stamp + stamp);
}

TEST_F(Logs, TraceEntriesAndTheirBytes) {
    ComSetPortDebugFile(3, path.c_str());
    added();
    const std::vector<uint8_t> bytes{0x0a, 0xff};
    traceBytes(*port, "100%:", bytes);
    EXPECT_EQ(added(), traceStamp + "100%:" + traceStamp + " a ff");
    port.close();
    traceBytes(*port, "late", bytes);
    EXPECT_EQ(added(), "");
}

TEST_F(Logs, RefusalsChangeNothing) {
    debugOn();
    for (int32_t bad : {0, 257, 4})
        EXPECT_EQ(ComSetDebugFile(bad, path.c_str(), "T") + ComWriteDebugFile(bad, "x"), -2) << bad;
    std::string longest = directory.file("") + std::string(259 - directory.file("").size(), 'x');
    EXPECT_EQ(ComSetDebugFile(3, (longest + "x").c_str(), "T"), -1);
    EXPECT_EQ(ComSetPortDebugFile(3, (longest + "x").c_str()), -1);
    const char* none = nullptr;
    EXPECT_EQ(ComWriteDebugFile(3, none), -1);
    EXPECT_EQ(ComWriteDebugFileString(3, none) + ComWriteDebugVerifyFileString(3, none), -2);
    EXPECT_EQ(ComWriteDebugFileStringHEX(3, none, 1), -1);
    EXPECT_EQ(ComWriteDebugFileString(3, "still on"), 1);
    EXPECT_EQ(added(), stamp + "still on");

    EXPECT_EQ(ComSetDebugFile(3, longest.c_str(), "T"), 1);
    port.close();
    EXPECT_EQ(ComWriteDebugFileString(3, "x"), -1);
}

TEST_F(Logs, FilesThatCannotBeWritten) {
    std::string later = directory.file("sub/log.txt"), fifo = directory.file("fifo");
    EXPECT_EQ(ComSetDebugFile(3, later.c_str(), "T"), -2);
    EXPECT_EQ(ComSetPortDebugFile(3, later.c_str()), 1);
    EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
    std::filesystem::create_directory(directory.path() / "sub");
    trace(*port, "lost too");
    EXPECT_FALSE(std::filesystem::exists(later));
    EXPECT_EQ(ComWriteDebugFile(3, "now"), 1);
    trace(*port, "and");
    EXPECT_EQ(contents(later), stamp + "now" + traceStamp + "and");

    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(ComSetDebugFile(3, fifo.c_str(), "T"), -2);
    EXPECT_EQ(ComSetDebugFile(3, directory.file("").c_str(), "T"), -2);
    EXPECT_EQ(ComSetDebugFile(3, "/dev/full", "T"), -2);
    EXPECT_EQ(ComWriteDebugFileString(3, "x"), -2);
}

TEST_F(Logs, DeletedFilesComeBack) {
    debugOn();
    std::filesystem::remove(path);
    seen = 0;
    EXPECT_EQ(ComWriteDebugFile(3, "again"), 1);
    EXPECT_EQ(added(), stamp + "again");
}

TEST_F(Logs, SomebodyElseHoldsTheFile) {
    debugOn();
    {
        file::Appender other(path.c_str(), file::Sharing::readOnly, file::Missing::refuse);
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
        EXPECT_EQ(contents(path).size(), seen) << "reading stays possible";
    }
    {
        test::PeerProcess holder(BRISOLT_TEST_PEER, {"hold", path});
        ASSERT_EQ(holder.readLine(), "held");
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
    }
    EXPECT_EQ(ComWriteDebugFile(3, "free"), 1);
    EXPECT_EQ(added(), stamp + "free");
}

TEST_F(Logs, EntriesFlushTheStreamsAndTheTraceDoesNot) {
    std::string buffered = directory.file("buffered");
    FILE* stream = std::fopen(buffered.c_str(), "w");
    debugOn();
    ComSetPortDebugFile(3, path.c_str());
    std::fputs("1", stream);
    trace(*port, "x");
    EXPECT_EQ(contents(buffered), "");
    ComWriteDebugFile(3, "x");
    EXPECT_EQ(contents(buffered), "1");
    std::fclose(stream);
}

TEST_F(Logs, WritersWhileTheNameChanges) {
    std::string other = directory.file("other.txt");
    std::atomic<int> written{0};
    auto writer = [&] {
        for (int i = 0; i < 300; ++i) {
            int32_t result = ComWriteDebugFile(3, "%s", "abc");
            EXPECT_TRUE(result == 1 || result == 0 || result == -2) << result;
            written += result == 1;
            trace(*port, "t");
        }
    };
    std::thread first(writer), second(writer);
    for (int i = 0; i < 300; ++i) {
        ComSetDebugFile(3, i % 3 == 0 ? "" : i % 3 == 1 ? path.c_str() : other.c_str(), "T");
        ComSetPortDebugFile(3, i % 2 == 0 ? "" : directory.file("trace.txt").c_str());
    }
    first.join();
    second.join();

    // Nothing of an entry or a header stands inside another one, and what was reported is there.
    int found = 0;
    for (std::string text : {contents(path), contents(other)})
        for (std::string_view rest = text; !rest.empty();) {
            std::string next = rest.starts_with(stamp) ? stamp + "abc" : header("DEBUG FILE - T");
            ASSERT_TRUE(rest.starts_with(next)) << rest.substr(0, 80);
            found += rest.starts_with(stamp);
            rest.remove_prefix(next.size());
        }
    EXPECT_EQ(found, written);
}

TEST_F(Logs, TimeHexAndProcessHelpers) {
    char text[9];
    const clock::LocalTime moment{2105, 1, 2, 23, 0, 9, 999};
    clock::setTestLocalTime(&moment);
    EXPECT_EQ(ComGetDate(text), 1);
    EXPECT_STREQ(text, "01/02/05");
    EXPECT_EQ(ComGetSystemTime(text), 1);
    EXPECT_STREQ(text, "23:00:09");
    EXPECT_EQ(ComGetTime(nullptr), -1);
    EXPECT_EQ(ComConvertBytetoHEXASCII(10, text), 1);
    EXPECT_STREQ(text, "0a");
    for (auto [digits, value] :
         {std::pair{"7", 7}, {"1F", 31}, {"ff", 0}, {"A", 10}, {"FFF", 255}, {"xB", 11}, {"", 0}})
        EXPECT_EQ(ComConvertHEXASCIItoByte(digits), value) << digits;
    EXPECT_EQ(WEXITSTATUS(ComSys("exit 3")), 3);
}

} // namespace
} // namespace brisolt
