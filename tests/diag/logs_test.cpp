// The log files of a port byte by byte, what their functions answer, and who may have a file at a time.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "api/brisolt.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "port/capture_hook.h"
#include "port/log_file.h"
#include "port/trace.h"
#include "support/bare_port.h"
#include "support/temp_dir.h"

namespace brisolt {
namespace {

const std::string stamp = "\r\n[11/19/26 04:51:58:7 p3]";
const std::string traceStamp = "\r\n[11/19/26 04:51:58 7 p3]";

std::string header(const std::string& title) {
    return "\r\n\r\n  ****OPEN " + title + "  Version:5.30  Date:11/19/26 Time:04:51:58 ****\r\n";
}

std::string repeated(const std::string& item, int count) {
    std::string text;
    while (count-- > 0)
        text += item;
    return text;
}

class Logs : public testing::Test {
protected:
    Logs() {
        clock::LocalTime moment{2026, 11, 19, 4, 51, 58, 7};
        clock::setTestLocalTime(&moment);
    }
    ~Logs() override {
        clock::setTestLocalTime(nullptr);
        captureHook = nullptr;
    }

    static std::string contents(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// What was added to the log since the last look.
    std::string added() {
        std::string all = contents(path);
        return all.substr(std::exchange(seen, all.size()));
    }
    void debugOn() {
        ASSERT_EQ(ComSetDebugFile(3, path.c_str(), "T"), 1);
        added();
    }

    test::TempDir directory;
    test::BarePort port{3};
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

    EXPECT_EQ(ComWriteDebugFile(3, "%s %5d %-4u| %04x %#lX %c%%", "text", -7, 8u, 0xabu, 0xcdul, 'z'), 1);
    EXPECT_EQ(added(), stamp + "text    -7 8   | 00ab 0XCD z%");
    EXPECT_EQ(ComWriteDebugFileString(3, "100%s"), 1);
    EXPECT_EQ(added(), stamp + "100%s");
    EXPECT_EQ(ComWriteDebugFileStringLF(3, "below"), 1);
    EXPECT_EQ(added(), stamp + "\r\nbelow");
    EXPECT_EQ(ComWriteDebugFileStringNL(3, "bare"), 1);
    EXPECT_EQ(added(), "\r\nbare");
    EXPECT_EQ(ComWriteDebugVerifyFileString(3, "100%n%s"), 1);
    EXPECT_EQ(added(), stamp + "100%n%s");

    std::string text(5000, 'a');
    ComWriteDebugFile(3, "%s", text.c_str());
    EXPECT_EQ(added(), stamp + text.substr(0, 1023));
    ComWriteDebugVerifyFileString(3, text.c_str());
    EXPECT_EQ(added(), stamp + text.substr(0, 1023));
    ComWriteDebugFileString(3, text.c_str());
    EXPECT_EQ(added(), stamp + text);

    EXPECT_EQ(ComWriteDebugVerifyFile(3, "v%d", 1), 1);
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "p%d", 1), 1);
    EXPECT_EQ(contents(verify), header("DEBUG FILE - V") + stamp + "v1");
    EXPECT_EQ(contents(protocol), header("PROTOCOL DEBUG FILE - Protocol:P") + stamp + "p1");
    EXPECT_EQ(added(), "");
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

TEST_F(Logs, TraceEntriesAndTheirHexLines) {
    ComSetPortDebugFile(3, path.c_str());
    added();
    trace(*port, "Writing %d characters", 3);
    EXPECT_EQ(added(), traceStamp + "Writing 3 characters");
    std::vector<uint8_t> bytes(82, 0x0a);
    auto line = [](int count) { return traceStamp + repeated(" a", count); };
    traceBytes(*port, "100%:", bytes);
    EXPECT_EQ(added(), traceStamp + "100%:" + line(41) + line(40) + line(1));
    traceBytes(*port, "H:", std::span(bytes).first(41));
    EXPECT_EQ(added(), traceStamp + "H:" + line(41));

    port.close();
    traceBytes(*port, "late", bytes);
    EXPECT_EQ(added(), "");
}

TEST_F(Logs, RefusalsChangeNothing) {
    debugOn();
    for (int32_t bad : {0, 257, -1, 4}) {
        EXPECT_EQ(ComSetDebugFile(bad, path.c_str(), "T"), -1);
        EXPECT_EQ(ComSetPortDebugFile(bad, path.c_str()), -1);
        EXPECT_EQ(ComWriteDebugFile(bad, "x"), -1);
    }
    std::string longest = directory.file("") + std::string(259 - directory.file("").size(), 'x');
    EXPECT_EQ(ComSetDebugFile(3, (longest + "x").c_str(), "T"), -1);
    EXPECT_EQ(ComSetPortDebugFile(3, (longest + "x").c_str()), -1);
    const char* none = nullptr;
    EXPECT_EQ(ComWriteDebugFile(3, none), -1);
    EXPECT_EQ(ComWriteDebugFileString(3, none), -1);
    EXPECT_EQ(ComWriteDebugVerifyFileString(3, none), -1);
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

TEST_F(Logs, DeletedFilesAndNamesWithBackslashes) {
    debugOn();
    std::filesystem::remove(path);
    seen = 0;
    EXPECT_EQ(ComWriteDebugFile(3, "again"), 1);
    EXPECT_EQ(added(), stamp + "again");

    std::filesystem::create_directory(directory.path() / "sub");
    std::string asItStands = directory.file("sub\\a.txt"), translated = directory.file("sub/a.txt");
    EXPECT_EQ(ComSetDebugFile(3, asItStands.c_str(), "1"), 1);
    EXPECT_EQ(contents(translated), header("DEBUG FILE - 1"));
    std::ofstream(asItStands).flush();
    EXPECT_EQ(ComSetDebugFile(3, asItStands.c_str(), "2"), 1);
    EXPECT_EQ(contents(asItStands), header("DEBUG FILE - 2"));
}

TEST_F(Logs, OneWriterAtATime) {
    debugOn();
    {
        file::Appender other(path.c_str(), file::Sharing::all, file::Missing::refuse);
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
        EXPECT_TRUE(file::Appender(path.c_str(), file::Sharing::all, file::Missing::refuse));
    }
    {
        file::Appender other(path.c_str(), file::Sharing::readOnly, file::Missing::refuse);
        EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2);
        EXPECT_FALSE(file::Appender(path.c_str(), file::Sharing::all, file::Missing::refuse));
        EXPECT_EQ(contents(path).size(), seen) << "reading stays possible";
    }
    EXPECT_EQ(ComWriteDebugFile(3, "free"), 1);
}

TEST_F(Logs, AnotherProcessHoldsTheFile) {
    debugOn();
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    if (child == 0) {
        bool locked = flock(open(path.c_str(), O_RDWR), LOCK_EX) == 0;
        if (write(ready[1], &locked, 1) == 1)
            pause();
        _exit(1);
    }
    bool locked = false;
    EXPECT_EQ(read(ready[0], &locked, 1), 1);
    EXPECT_EQ(ComWriteDebugFile(3, "lost"), -2) << "locked: " << locked;
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
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

std::vector<std::string> captured;

TEST_F(Logs, CaptureTakesTheProtocolEntries) {
    captured.clear();
    ComSetProtocolDebugFile(3, path.c_str(), "P");
    added();
    captureHook = [](Port&, std::string_view bytes) noexcept { captured.emplace_back(bytes); };
    port->record->captureActive = 1;
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "a%d", 1), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileString(3, "b"), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileStringHEX(3, "\x01", 1), 1);
    EXPECT_EQ(ComSetProtocolDebugFile(3, "", "Q"), 1);
    std::vector<std::string> expected{
        traceStamp, "a1", traceStamp, "b", traceStamp, "<1>", header("PROTOCOL DEBUG FILE - Protocol:Q")};
    EXPECT_EQ(captured, expected);
    EXPECT_EQ(added(), "");
    port->record->captureActive = 0;
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "on as before"), 1);
    EXPECT_EQ(added(), stamp + "on as before");
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
    clock::LocalTime moment{2105, 1, 2, 23, 0, 9, 999};
    clock::setTestLocalTime(&moment);
    EXPECT_EQ(ComGetDate(text), 1);
    EXPECT_STREQ(text, "01/02/05");
    EXPECT_EQ(ComGetSystemTime(text), 1);
    EXPECT_STREQ(text, "23:00:09");
    EXPECT_EQ(ComGetTime(nullptr), -1);
    EXPECT_EQ(ComConvertBytetoHEXASCII(10, text), 1);
    EXPECT_STREQ(text, "0a");
    std::pair<const char*, int32_t> values[] = {{"7", 7},  {"1F", 31},   {"ff", 0},
                                                {"A", 10}, {"FFF", 255}, {"xB", 11}};
    for (auto [digits, value] : values)
        EXPECT_EQ(ComConvertHEXASCIItoByte(digits), value) << digits;
    EXPECT_EQ(ComConvertHEXASCIItoByte("") + ComConvertHEXASCIItoByte(nullptr), -1);

    EXPECT_EQ(WEXITSTATUS(ComSys("exit 3")), 3);
}

} // namespace
} // namespace brisolt
