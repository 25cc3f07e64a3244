// The log files of a port byte by byte, what their functions answer, and who may have a file at a time.
#include <atomic>

#include <sys/stat.h>

#include "diag/standing_clock.h"
#include "platform/file.h"
#include "port/trace.h"
#include "support/peer_process.h"

namespace brisolt::test {
namespace {

const std::string stamp = "\r\n[11/19/26 04:51:58:7 p3]";

std::string repeated(const std::string& item, int count) {
    return count < 1 ? "" : item + repeated(item, count - 1);
}

struct Logs : StandingClock {
    /// What was added to the log since the last look.
    std::string added() {
        std::string all = contentsOf(path);
        return all.substr(std::exchange(seen, all.size()));
    }
    void expectEntry(int32_t result, const std::string& text) {
        EXPECT_EQ(result, 1);
        EXPECT_EQ(added(), text);
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
    expectEntry(ComSetDebugFile(3, path.c_str(), "My title"), "kept" + header("DEBUG FILE - My title"));
    expectEntry(ComSetProtocolDebugFile(3, path.c_str(), nullptr), header("PROTOCOL DEBUG FILE - Protocol:"));
    expectEntry(ComSetPortDebugFile(3, path.c_str()), "  \r\n\r\nOPEN PORT DEBUG FILE Version 5.30\r\n ");
    const std::string buffered = directory.file("buffered");
    FILE* stream = std::fopen(buffered.c_str(), "w");
    std::fputs("1", stream);
    trace(*port, "x");
    EXPECT_EQ(contentsOf(buffered), "");
    ComWriteDebugFile(3, "x");
    EXPECT_EQ(contentsOf(buffered), "1") << "an entry flushes the program's streams, a trace does not";
    std::fclose(stream);
    added();
    EXPECT_EQ(ComSetPortDebugFile(3, nullptr), 1);
    trace(*port, "x");
    expectEntry(ComSetDebugFile(3, "", "T"), "");
    EXPECT_EQ(ComWriteDebugFileString(3, "x"), 0);
}

TEST_F(Logs, EntriesGoToTheirFileInTheirForm) {
    const std::string verify = directory.file("verify.txt"), protocol = directory.file("protocol.txt");
    debugOn();
    ComSetDebugVerifyFile(3, verify.c_str(), "V");
    ComSetProtocolDebugFile(3, protocol.c_str(), "P");
    EXPECT_EQ(ComWriteDebugVerifyFile(3, "v%d", 1), 1);
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "p%d", 1), 1);
    EXPECT_EQ(contentsOf(verify), header("DEBUG FILE - V") + stamp + "v1");
    EXPECT_EQ(contentsOf(protocol), header("PROTOCOL DEBUG FILE - Protocol:P") + stamp + "p1");
    EXPECT_EQ(added(), "");
    expectEntry(ComWriteDebugFile(3, "%s %5d %-4u| %04x %#lX %c%%", "text", -7, 8u, 0xabu, 0xcdul, 'z'),
                stamp + "text    -7 8   | 00ab 0XCD z%");
    expectEntry(ComWriteDebugFileString(3, "100%s"), stamp + "100%s");
    expectEntry(ComWriteDebugFileStringLF(3, "below"), stamp + "\r\nbelow");
    expectEntry(ComWriteDebugFileStringNL(3, "bare"), "\r\nbare");
    expectEntry(ComWriteDebugVerifyFileString(3, "100%n%s"), stamp + "100%n%s");
    const std::string text(5000, 'a'), cut = stamp + text.substr(0, 1023);
    expectEntry(ComWriteDebugFile(3, "%s", text.c_str()), cut);
    expectEntry(ComWriteDebugVerifyFileString(3, text.c_str()), cut);
    expectEntry(ComWriteDebugFileString(3, text.c_str()), stamp + text);

    // Dumps.
    ComSetProtocolDebugFile(3, path.c_str(), "P");
    added();
    const std::vector<uint8_t> zeros(2000);
    const std::string bytes(750, 'b'), line = repeated("<0> ", 18) + "\r\n";
    expectEntry(ComWriteDebugFileStringHEX(3, zeros.data(), 600),
                stamp + repeated(line, 27) + repeated("<0> ", 500 - 27 * 18));
    expectEntry(ComWriteDebugVerifyFileStringHEX(3, "A%\r\x1e\x1f~\x7f", 7),
                stamp + "A % <d> <1e> \x1f ~ <7f> ");
    // 36 characters weigh 72: the break comes before the next one.
    expectEntry(ComWriteDebugVerifyFileStringHEX(3, bytes.c_str(), 750),
                stamp + repeated(repeated("b ", 36) + "\r\n", 20).substr(0, 1023));
    expectEntry(ComWriteProtocolDebugFileStringHEX(3, zeros.data(), 2000),
                stamp + repeated(repeated("<0>", 18) + "\r\n", 30).substr(0, 1023));
    expectEntry(ComWriteDebugFileStringHEX(3, nullptr, 0), stamp);
    expectEntry(ComWriteProtocolDebugFileStringHEX(3, zeros.data(), -5), stamp);
}

TEST_F(Logs, FilesThatCannotBeWritten) {
    const std::string later = directory.file("sub/log.txt"), fifo = directory.file("fifo");
    EXPECT_EQ(ComSetDebugFile(3, later.c_str(), "T"), -2);
    EXPECT_EQ(ComSetPortDebugFile(3, later.c_str()), 1);
    EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
    std::filesystem::create_directory(directory.path() / "sub");
    trace(*port, "lost too");
    EXPECT_FALSE(std::filesystem::exists(later));
    EXPECT_EQ(ComWriteDebugFile(3, "now"), 1);
    trace(*port, "and");
    EXPECT_EQ(contentsOf(later), stamp + "now" + traceStamp + "and");
    std::filesystem::remove(later);
    EXPECT_EQ(ComWriteDebugFile(3, "again"), 1);
    EXPECT_EQ(contentsOf(later), stamp + "again");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& no : {fifo, directory.file(""), std::string("/dev/full")})
        EXPECT_EQ(ComSetDebugFile(3, no.c_str(), "T"), -2);
    EXPECT_EQ(ComWriteDebugFileString(3, "x"), -2);
}

TEST_F(Logs, WhatIsRefusedOrHeldBySomebodyElseChangesNothing) {
    debugOn();
    const std::string longest = directory.file("") + std::string(259 - directory.file("").size(), 'x');
    EXPECT_EQ(ComSetDebugFile(3, (longest + "x").c_str(), "T"), -1);
    EXPECT_EQ(ComSetPortDebugFile(3, (longest + "x").c_str()), -1);
    {
        const file::Appender other(path.c_str(), file::Sharing::readOnly, file::Missing::refuse);
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
    }
    {
        PeerProcess holder(BRISOLT_TEST_PEER, {"hold", path});
        ASSERT_EQ(holder.readLine(), "held");
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
        EXPECT_EQ(contentsOf(path).size(), seen) << "reading stays possible";
    }
    expectEntry(ComWriteDebugFile(3, "free"), stamp + "free");
    EXPECT_EQ(ComSetDebugFile(3, longest.c_str(), "T"), 1);
}

TEST_F(Logs, WritersWhileTheNameChanges) {
    const std::string other = directory.file("other.txt"), traced = directory.file("trace.txt");
    std::atomic<int> written{0};
    const auto writer = [&] {
        for (int i = 0; i < 300; ++i) {
            const int32_t result = ComWriteDebugFile(3, "%s", "abc");
            EXPECT_TRUE(result == 1 || result == 0 || result == -2) << result;
            written += result == 1;
            trace(*port, "t");
            ComWriteProtocolDebugFile(3, "%s", "to the capture, when it is on");
        }
    };
    {
        const std::jthread first(writer), second(writer);
        for (int i = 0; i < 300; ++i) {
            ComSetDebugFile(3, i % 3 == 0 ? "" : i % 3 == 1 ? path.c_str() : other.c_str(), "T");
            ComSetPortDebugFile(3, i % 2 == 0 ? "" : traced.c_str());
            EXPECT_EQ(i % 30 == 0    ? ComSetDebugFileOnFail(3, directory.path().c_str(), 1 + i)
                      : i % 60 == 10 ? ComDebugFileOnFail_Save(3)
                      : i % 60 == 20 ? ComClearDebugFileOnFail(3)
                      : i % 60 == 50 ? ComStopDebugFileOnFail(3)
                                     : 1,
                      1);
        }
    }

    // Nothing of an entry or a header stands inside another one, and what was reported is there.
    int found = 0;
    const std::string all = contentsOf(path) + contentsOf(other);
    for (std::string_view rest = all; !rest.empty();) {
        const std::string next = rest.starts_with(stamp) ? stamp + "abc" : header("DEBUG FILE - T");
        ASSERT_TRUE(rest.starts_with(next)) << rest.substr(0, 80);
        found += rest.starts_with(stamp);
        rest.remove_prefix(next.size());
    }
    EXPECT_EQ(found, written);
}

TEST_F(Logs, TimeHexAndProcessHelpers) {
    char date[9], time[9], hex[3];
    EXPECT_EQ(ComGetDate(date) & ComGetSystemTime(time) & ComConvertBytetoHEXASCII(10, hex), 1);
    EXPECT_EQ(std::string(date) + ' ' + time + ' ' + hex, "11/19/26 04:51:58 0a");
    for (auto [digits, value] :
         {std::pair{"7", 7}, {"1F", 31}, {"ff", 0}, {"A", 10}, {"FFF", 255}, {"xB", 11}, {"", 0}})
        EXPECT_EQ(ComConvertHEXASCIItoByte(digits), value) << digits;
    EXPECT_EQ(ComSys("exit 3"), 3 << 8);
}

} // namespace
} // namespace brisolt::test
