// Plain lines over a network, and what ends them.
#include <future>

#include "field/field_port.h"
#include "network/far_end.h"
#include "support/open_port.h"
#include "support/peer_process.h"

namespace brisolt::test {
namespace {

using namespace std::chrono_literals;

TEST(NetworkPath, WhatIsWrongIsNamed) {
    const std::pair<const char*, const char*> wrong[] = {
        {"tcp:host", "HOST:PORT"},
        {"tcp:host:0", "a number from 1 to 65535"},
        {"tcp::99", "no host"},
        {"tcp:fe80::1:99", "in brackets"},
        {"tcp:host:99?connect=soon", "connect cannot be \"soon\"; possible: 1 to 600000"},
        {"tcp:host:99?answer=5", "unknown option \"answer=5\"; possible: connect, and"},
        {"rfc2217:host:99?answer=5&answer=5", "answer is given twice"},
        {"tls:host:99?verify=maybe", "verify cannot be \"maybe\"; possible: yes, no"},
        {"tls:host:99?cert=x", "cert and key belong together"},
        {"tcp:127.0.0.1:1", "127.0.0.1: Connection refused"},
        {"tcp:[::1]:1", "::1: "},
        {"tcp:no-such-host.invalid:1?connect=3000", "no-such-host.invalid"},
        {"tcp:localhost:1?marks=yes", "marks is not possible here"},
        {"rfc2217:localhost:1?rs485=rts", "rs485 is not possible here"},
        {"tls:localhost:1", "libbrisolt-tls5"},
    };
    ComHostMapModule("BRISOLT-TLS.DLL", "/no/such/module.so");
    for (const auto& [path, named] : wrong) {
        EXPECT_EQ(ComHostOpen(path, 9600, nullptr), -25) << path;
        EXPECT_NE(errorTextNow().find(named), std::string::npos) << errorTextNow();
    }
}

TEST(Tcp, EchoesThroughAnotherProgram) {
    const std::string at = std::to_string(freePort()), path = "tcp:localhost:" + at;
    const std::string listen = "TCP-LISTEN:" + at + ",reuseaddr";
    PeerProcess once("/usr/bin/socat", {listen, "EXEC:/bin/cat"});
    ASSERT_TRUE(eventually([&] { return opens(path); })) << errorTextNow();
    EXPECT_EQ(once.wait(), 0) << "it saw no orderly end";
    const PeerProcess again("/usr/bin/socat", {listen + ",fork", "EXEC:/bin/cat"});
    ASSERT_TRUE(eventually([&] { return opens(path); })) << errorTextNow();
    const FieldPort port(path);
    const std::string bytes = pattern(1 << 20);
    auto read = std::async(std::launch::async, [&] { return port.read(bytes.size()); });
    EXPECT_EQ(port.write(bytes, -1), 1 << 20);
    EXPECT_EQ(read.get(), bytes);
    EXPECT_EQ(ComHostDrain(port, 20000), 1);
    EXPECT_EQ(ComHostSetLine(port, 4800, "7E2", -1), 1);
    EXPECT_EQ(lineOf(port).dataBits, 7) << "settings are taken";
    EXPECT_EQ(ComHostGetLines(port), -4);
    ComHostCounters seen = port.counters();
    EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_CTS, &seen, 0), -4);
    EXPECT_EQ(ComHostClose(port, 5000), 1);
}

TEST(Tcp, AGreetingIsReadByAnyOpen) {
    const Listener listener;
    auto greeted = std::async(std::launch::async, [&] {
        auto far = std::make_unique<Connection>(listener.accept());
        far->say("welcome");
        return far;
    });
    const OpenPort port(5, listener.path());
    EXPECT_EQ(readTimed(port, 7, 2000), "welcome");
    EXPECT_GT(ComPuts(port, "thanks"), 0);
    EXPECT_EQ(greeted.get()->hear(6), "thanks");
}

/// Many rounds: in the course of them the thread attends to the port itself.
void hearsOfBytesAndOfTheEnd(const FieldPort& port, const std::function<void(const std::string&)>& say,
                             const std::function<void()>& leave) {
    ComSetNotifyThreadMessageAnyChar(port, ComHostThreadId());
    ComHostSetEventMessage(port, COM_HOST_EVENT_GONE, 0, ComHostThreadId());
    ComHostMessage message{};
    std::string heard;
    for (int round = 0; round < 50; ++round) {
        say("ping");
        ASSERT_EQ(ComHostGetMessage(&message, 20000), 1);
        heard += port.read(4);
    }
    EXPECT_EQ(heard.size(), 200U);
    ComHostCounters seen = port.counters();
    auto told = std::async(std::launch::async,
                           [&] { return ComHostWaitEvent(port, COM_HOST_EVENT_GONE, &seen, 20000); });
    leave();
    while (ComHostGetMessage(&message, 20000) == 1 && message.message != COM_HOST_MESSAGE_EVENT) {
    }
    EXPECT_EQ(message.message, static_cast<uint32_t>(COM_HOST_MESSAGE_EVENT));
    EXPECT_EQ(message.first, static_cast<uintptr_t>(COM_HOST_EVENT_GONE));
    EXPECT_EQ(told.get(), COM_HOST_EVENT_GONE);
    EXPECT_EQ(ComHostGetPortState(port), 2);
    char byte = 0;
    EXPECT_EQ(ComHostRead(port, &byte, 1, -1), -2);
    EXPECT_EQ(port.write("x", -1), -2);
    EXPECT_EQ(ComHostDescriptor(port), -2);
}

TEST(NetworkNotifications, TellOfBytesAndOfTheEnd) {
    RemoteServer server;
    hearsOfBytesAndOfTheEnd(
        FieldPort(server.path()), [&](const std::string& bytes) { server.say(bytes); },
        [&] { server.hangUp(); });
    const Listener listener;
    for (const auto leave : {&Connection::close, &Connection::reset}) {
        const FieldPort port(listener.path());
        Connection far = listener.accept();
        hearsOfBytesAndOfTheEnd(
            port, [&](const std::string& bytes) { far.say(bytes); }, [&] { (far.*leave)(); });
    }
}

TEST(Tcp, AFarEndThatStopsReadingHoldsUsOffAndNobodyElse) {
    const Listener listener;
    const FieldPort port(listener.path());
    const Connection far = listener.accept();
    const std::string bytes = pattern(32 << 20);
    const int32_t taken = port.write(bytes, 600);
    EXPECT_TRUE(taken > 0 && taken < 32 << 20) << taken;
    EXPECT_EQ(ComHostDrain(port, 100), 0);
    far.say("still here");
    EXPECT_EQ(port.read(10), "still here");
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(ComHostClose(port, 100), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 2s);
    EXPECT_EQ(far.hear(1 << 20), bytes.substr(0, 1 << 20));
}

TEST(Tcp, KeptLinesComeBackWithTheServer) {
    auto listener = std::make_unique<Listener>();
    const int at = listener->port();
    const FieldPort port(listener->path("?keep=yes"));
    Connection far = listener->accept();
    far.say("before");
    ASSERT_TRUE(eventually([&] { return port.counters().received == 6; }));
    ComHostCounters seen = port.counters();
    listener.reset();
    far.close();
    EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_GONE, &seen, 20000), COM_HOST_EVENT_GONE);
    EXPECT_EQ(ComHostGetPortState(port), 3);
    EXPECT_EQ(port.write("meanwhile", 0), 9);
    EXPECT_EQ(port.read(6), "before");
    std::this_thread::sleep_for(400ms); // some attempts are refused
    Listener again(at);
    Connection back = again.accept();
    EXPECT_EQ(back.hear(9), "meanwhile");
    back.say("after");
    EXPECT_EQ(port.read(5), "after");
    EXPECT_EQ(ComHostGetPortState(port), 1);
    EXPECT_EQ(port.counters().gone, 1U);
    EXPECT_EQ(port.counters().back, 1U);
}

} // namespace
} // namespace brisolt::test
