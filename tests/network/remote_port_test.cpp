// Remote serial ports: servers that others wrote, and one that lies.
#include <future>

#include <asm/termbits.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "field/field_port.h"
#include "network/far_end.h"
#include "support/open_port.h"
#include "support/peer_process.h"

namespace brisolt::test {
namespace {

using namespace std::chrono_literals;

std::string remote(int port) {
    return "rfc2217:localhost:" + std::to_string(port);
}

std::vector<std::string> argumentsOf(const std::string& program, const std::string& device, int port,
                                     const TempDir& folder) {
    if (program.ends_with("gensiot"))
        return {"--server", "-i", "serialdev," + device + ",9600n81,local", "-a",
                "telnet(rfc2217),tcp,127.0.0.1," + std::to_string(port)};
    std::ofstream(folder.file("ser2net.yaml"))
        << "%YAML 1.1\n---\nconnection: &line\n  accepter: telnet(rfc2217),tcp,127.0.0.1," << port
        << "\n  connector: serialdev," << device << ",9600n81,local\n";
    return {"-d", "-c", folder.file("ser2net.yaml"), "-P", folder.file("pid")};
}

class ServersOfOthers : public testing::TestWithParam<std::string> {};

TEST_P(ServersOfOthers, SetTheirDevice) {
    const std::string& program = GetParam();
    if (access(program.c_str(), X_OK) != 0)
        GTEST_SKIP() << program << " is not installed";
    const Pty far;
    const TempDir folder;
    const int at = freePort();
    const PeerProcess process(program, argumentsOf(program, far.slavePath(), at, folder));
    int32_t number = 0;
    ASSERT_TRUE(eventually([&] { return (number = ComHostOpen(remote(at).c_str(), 38400, "7E2")) > 0; }))
        << errorTextNow();
    const std::tuple<int32_t, const char*, int32_t, uint32_t, uint32_t> settings[] = {
        {38400, "7E2", -1, CSTOPB, 0},
        {9600, "8N1", COM_FLOW_XON_XOFF, 0, IXON},
        {0, "8N1", COM_FLOW_RTS_CTS, CRTSCTS, 0},
        {115200, "8N2", COM_FLOW_NONE, CSTOPB, 0},
        {19200, "8M1", -1, CMSPAR | PARODD, 0},
    };
    for (const auto& [rate, framing, flow, cflag, iflag] : settings) {
        EXPECT_EQ(ComHostSetLine(number, rate, framing, flow), 1) << errorTextNow();
        termios2 now{};
        ioctl(far.master(), TCGETS2, &now);
        EXPECT_EQ(now.c_ospeed, rate == 0 ? now.c_ospeed : static_cast<uint32_t>(rate));
        EXPECT_EQ(now.c_cflag & (PARODD | CMSPAR | CSTOPB | CRTSCTS), cflag) << framing; // what a pty keeps
        EXPECT_EQ(now.c_iflag & IXON, iflag);
    }
    EXPECT_EQ(ComHostSetLine(number, 0, "4N1", -1), -4);
    const std::string bytes = pattern(20000);
    EXPECT_EQ(ComHostWrite(number, bytes.data(), 20000, 20000), 20000);
    EXPECT_EQ(far.read(bytes.size(), 20s), bytes);
    EXPECT_EQ(far.write(bytes, 20s), bytes.size());
    EXPECT_EQ(readTimed(number, 20000, 2000), bytes);
    EXPECT_EQ(ComHostClose(number, 2000), 1);
}

INSTANTIATE_TEST_SUITE_P(Network, ServersOfOthers, testing::Values("/usr/sbin/ser2net", "/usr/bin/gensiot"),
                         [](const auto& program) {
                             return program.param.substr(program.param.rfind('/') + 1);
                         });

TEST(RemotePort, PyserialsServerTellsItsLines) {
    const char* const program = "/usr/share/doc/python3-serial/examples/rfc2217_server.py";
    if (access(program, R_OK) != 0)
        GTEST_SKIP() << "python3-serial is not installed";
    const int at = freePort();
    const PeerProcess server("/usr/bin/python3", {program, "loop://", "-p", std::to_string(at)});
    const std::string path = remote(at) + "?answer=20000"; // it takes its time between two clients
    ASSERT_TRUE(eventually([&] { return opens(path); })) << errorTextNow();
    const FieldPort port(path);
    const auto lines = [&port] { return ComHostGetLines(port); };
    EXPECT_TRUE(eventually([&] { return (lines() & COM_HOST_MODEM_CTS) != 0; }));
    ComHostCounters seen = port.counters();
    ComClearRTS(port);
    EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_CTS, &seen, 20000), COM_HOST_EVENT_CTS);
    EXPECT_EQ(lines() & (COM_HOST_MODEM_CTS | COM_HOST_MODEM_RTS), 0);
    EXPECT_EQ(ComHostSetLine(port, 57600, "8O1", COM_FLOW_RTS_CTS), 1) << errorTextNow();
    EXPECT_EQ(ComHostSetLine(port, 0, nullptr, COM_FLOW_XON_XOFF), 1) << errorTextNow();
    EXPECT_EQ(lineOf(port).baudRate, 57600U);
}

// ---- a server that lies

/// Some requests come without being waited for.
void expectAsked(RemoteServer& server, const std::vector<std::string>& requests) {
    std::string asked;
    for (const std::string& request : requests)
        EXPECT_TRUE(eventually([&] { return (asked += server.asked()).find(request) != std::string::npos; }))
            << request << "in " << asked;
}

TEST(LyingServer, DecidesWhetherAnOpenSucceeds) {
    const std::pair<RemoteServer::Answer, const char*> servers[] = {
        {[](int command, const std::string& value) {
             return command == 1 ? std::string() : RemoteServer::truth(command, value);
         },
         "does not answer when asked for baud rate 9600 (within 300 ms)"},
        {[](int command, const std::string& value) {
             return RemoteServer::truth(command, command == 4 ? std::string(1, 2) : value);
         },
         "runs at stop bits 2 when stop bits 1 is asked for"},
    };
    for (const auto& [answer, named] : servers) {
        const RemoteServer server(answer);
        EXPECT_EQ(ComHostOpen(server.path("?answer=300").c_str(), 9600, "8N1"), -36);
        EXPECT_NE(errorTextNow().find(named), std::string::npos) << errorTextNow();
    }
    const Listener plain;
    EXPECT_EQ(ComHostOpen(("rfc2217" + plain.path("?answer=300").substr(3)).c_str(), 9600, nullptr), -25);
    EXPECT_NE(errorTextNow().find("com-port option"), std::string::npos) << errorTextNow();
}

TEST(LyingServer, SilenceIsWaitedForOnceALateAnswerIsNotTakenForTheNextAndNoCloseWaits) {
    constexpr auto answer = 3s;
    RemoteServer server;
    const FieldPort port(server.path("?answer=3000"), 9600);
    server.answerWith(RemoteServer::silence);
    server.asked();
    auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(ComHostSetLine(port, 19200, nullptr, -1), -4);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, answer + 2s);
    EXPECT_NE(errorTextNow().find("baud rate 19200"), std::string::npos) << errorTextNow();
    expectAsked(server, {"1:19200 1:9600 "}); // the way back is asked for all the same
    // The answers to both come now, before that to the next.
    server.answerWith([](int command, const std::string& value) {
        return comPort(101, rate(19200)) + comPort(101, rate(9600)) + RemoteServer::truth(command, value);
    });
    EXPECT_EQ(ComHostSetLine(port, 57600, nullptr, -1), 1) << errorTextNow();
    EXPECT_EQ(lineOf(port).baudRate, 57600U);
    server.answerWith([](int, const std::string&) { return comPort(101, rate(1200)); });
    EXPECT_EQ(ComHostSetLine(port, 38400, nullptr, -1), -4) << "it says that it runs otherwise";
    EXPECT_NE(errorTextNow().find("baud rate 1200"), std::string::npos) << errorTextNow();
    server.answerWith(RemoteServer::truth);
    EXPECT_EQ(ComHostSetLine(port, 38400, nullptr, -1), 1) << errorTextNow();
    server.answerWith(RemoteServer::silence);
    std::thread setter([&port] { ComHostSetLine(port, 4800, nullptr, -1); });
    expectAsked(server, {"1:4800 "});
    begun = std::chrono::steady_clock::now();
    ComClose(port);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, answer - 500ms);
    setter.join();
}

TEST(LyingServer, BytesComeWhileAnAnswerIsWaitedFor) {
    RemoteServer server;
    const FieldPort port(server.path(), 9600);
    const std::string bytes = pattern(300000);
    std::atomic<bool> over{false};
    std::thread setter([&] {
        for (int32_t i = 0; !over; ++i)
            EXPECT_EQ(ComHostSetLine(port, i % 2 == 0 ? 9600 : 4800, nullptr, -1), 1) << errorTextNow();
    });
    auto read = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(300ms); // until there is no room for an answer
        return port.read(bytes.size());
    });
    for (std::size_t at = 0; at < bytes.size(); at += 1000) {
        std::string doubled; // its answers stand in between, but not in the middle of a 255
        for (char byte : bytes.substr(at, 1000))
            doubled.append(byte == '\xff' ? 2 : 1, byte);
        server.say(doubled);
    }
    EXPECT_EQ(read.get(), bytes);
    over = true;
    setter.join();
}

TEST(LyingServer, WhatComesIsTheSameWhereverItIsCut) {
    std::string data, stream;
    for (int value = 0; value < 256; ++value) {
        data += static_cast<char>(value);
        stream += std::string(value == 255 ? 2 : 1, static_cast<char>(value));
        if (value % 64 == 63) { // commands between them, and the last right behind a 255
            stream += "\xff\xfd\x01\xff\xfb\x01\xff\xf1";                  // DO, WILL something else; nothing
            stream += comPort(107, "\xff");                                // a message that holds a 255
            stream += "\xff\xfa\x18what is this\xff\xf0";                  // of another option
            stream += "\xff\xfa\x2c" + std::string(300, 'x') + "\xff\xf0"; // for people
            stream += "\xff\xfa\x2c\xff\xfe\x2a";                          // one that is not ended
        }
    }
    for (const std::size_t piece : {stream.size(), std::size_t{1}, std::size_t{2}, std::size_t{3}}) {
        RemoteServer server;
        const FieldPort port(server.path(), 9600);
        server.answerWith(RemoteServer::silence); // no answer comes in between
        for (std::size_t at = 0; at < stream.size(); at += piece)
            server.say(stream.substr(at, piece));
        EXPECT_EQ(port.read(data.size()), data) << "in pieces of " << piece;
        expectAsked(server, {"252:1 254:1 252:1 254:1 252:1 254:1 252:1 254:1 "}); // both are refused
        EXPECT_EQ(ComHostGetLines(port) & 0xF0, 0xF0) << "in pieces of " << piece;
    }
}

TEST(LyingServer, AFloodOfQuestionsAndCutDoublesLoseNothing) {
    RemoteServer server;
    const FieldPort port(server.path(), 9600);
    std::string flood; // of what wants to be refused, and is not heard meanwhile; and garbage
    for (int i = 0; i < 100000; ++i)
        flood += "\xff\xfd\x01";
    flood += comPort(101, "ab") + comPort(107, "") + comPort(250, "x") + "\xff\xfa\x2c\xff\xf0";
    auto said = std::async(std::launch::async, [&] { server.say(flood + "after"); });
    EXPECT_EQ(port.read(5), "after");
    said.get();
    server.say("be\xff\xf2", MSG_OOB); // a data mark, urgent as it mostly is
    server.say("hind");
    EXPECT_EQ(port.read(6), "behind");
    EXPECT_EQ(ComHostSetLine(port, 4800, nullptr, -1), 1) << errorTextNow();
    // Each byte is sent twice, to a far end that does not read for a while: some are cut in the middle.
    server.heard();
    server.answerWith([](int, const std::string&) {
        std::this_thread::sleep_for(500ms);
        return std::string();
    });
    ComClearRTS(port);
    std::string bytes(6 << 20, '\xff');
    for (std::size_t at = 0; at < bytes.size(); at += 9973)
        bytes[at] = 'a'; // the host cuts at whole pages
    EXPECT_EQ(port.write(bytes, -1), 6 << 20);
    std::string heard;
    EXPECT_TRUE(eventually([&] { return (heard += server.heard()).size() >= bytes.size(); }));
    EXPECT_TRUE(heard == bytes) << heard.size();
}

TEST(LyingServer, LinesErrorsAndHoldingOff) {
    RemoteServer server;
    const FieldPort port(server.path("?dtr=off"), 9600);
    expectAsked(server,
                {"10:30 ", "11:255 ", "7:0 ", "5:1 ", "1:9600 ", "2:8 ", "3:1 ", "4:1 ", "5:9 ", "5:11 "});
    ComHostCounters seen = port.counters();
    server.say(comPort(107, "\x90")); // how they are: carrier and CTS
    server.say(comPort(107, "\x28")); // DSR instead; carrier has changed, too
    server.say(comPort(107, "\x24")); // a ring has ended
    server.say(comPort(107, "\x22")); // DSR has changed twice
    server.say(comPort(106, "\x1e")); // each error once
    constexpr uint32_t last = COM_HOST_EVENT_BREAK;
    EXPECT_EQ(ComHostWaitEvent(port, last, &seen, 20000), static_cast<int32_t>(last));
    seen = port.counters();
    const std::vector<uint64_t> counted{seen.cts,     seen.dsr,    seen.carrier, seen.ring,
                                        seen.framing, seen.parity, seen.overrun};
    EXPECT_EQ(counted, (std::vector<uint64_t>{1, 3, 1, 1, 1, 1, 1}));
    EXPECT_EQ(ComHostGetLines(port), COM_HOST_MODEM_DSR | COM_HOST_MODEM_RTS);
    for (const bool somebodyReads : {true, false}) {
        EXPECT_TRUE(somebodyReads || ComHostDescriptor(port) >= 0);
        server.say(comPort(108, "")); // suspend
        server.say("x");
        EXPECT_EQ(port.read(1), "x");
        EXPECT_EQ(port.write("held", 0), 4) << "the ring takes it";
        std::this_thread::sleep_for(100ms);
        EXPECT_EQ(server.heard(), "");
        server.say(comPort(109, "")); // resume
        std::string heard;
        EXPECT_TRUE(eventually([&] { return (heard += server.heard()) == "held"; }));
    }
    server.asked();
    ComBreak(port);
    expectAsked(server, {"5:5 5:6 "});
}

TEST(LyingServer, AKeptLineIsSetUpAgainAndAClosedOneIsNotWaitedFor) {
    RemoteServer server;
    const FieldPort port(server.path("?keep=yes&answer=5000"), 9600);
    EXPECT_EQ(ComHostSetLine(port, 57600, "7E1", COM_FLOW_RTS_CTS), 1);
    ComClearDTR(port);
    ComHostCounters seen = port.counters();
    server.asked();
    server.hangUp();
    EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_BACK, &seen, 20000), COM_HOST_EVENT_BACK);
    expectAsked(server, {"1:57600 ", "2:7 ", "3:3 ", "5:3 ", "5:9 "});
    EXPECT_EQ(lineOf(port).baudRate, 57600U);
    server.answerWith(RemoteServer::silence);
    server.hangUp();
    expectAsked(server, {"1:57600 "});
    const auto begun = std::chrono::steady_clock::now();
    ComHostClose(port, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s) << "it waited for the answer";
}

} // namespace
} // namespace brisolt::test
