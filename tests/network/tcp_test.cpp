// Plain lines over a network, and what ends them.
#include <algorithm>
#include <future>

#include <csignal>
#include <fcntl.h>
#include <poll.h>

#include "field/field_port.h"
#include "network/far_end.h"
#include "support/peer_process.h"
#include "support/timing.h"

namespace brisolt::test {
namespace {

using namespace std::chrono_literals;

TEST(NetworkPath, WhatIsWrongIsNamed) {
    const struct {
        const char *path, *named;
    } wrong[] = {
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
    };
    for (const auto& [path, named] : wrong) {
        EXPECT_EQ(ComHostOpen(path, 9600, nullptr), -25) << path;
        EXPECT_NE(errorTextNow().find(named), std::string::npos) << errorTextNow();
    }
}

TEST(Tcp, EchoesThroughAnotherProgram) {
    const int port = freePort();
    PeerProcess socat("/usr/bin/socat",
                      {"TCP-LISTEN:" + std::to_string(port) + ",reuseaddr", "EXEC:/bin/cat"});
    const std::string path = "tcp:localhost:" + std::to_string(port);
    int32_t number = 0;
    ASSERT_TRUE(eventually([&] { return (number = ComHostOpen(path.c_str(), 9600, nullptr)) > 0; }))
        << errorTextNow();
    ComHostClose(number, 0);
    EXPECT_EQ(socat.wait(), 0) << "it saw no orderly end";
    PeerProcess again("/usr/bin/socat",
                      {"TCP-LISTEN:" + std::to_string(port) + ",reuseaddr", "EXEC:/bin/cat"});
    ASSERT_TRUE(eventually([&] { return (number = ComHostOpen(path.c_str(), 9600, "7E2")) > 0; }));
    const std::string bytes = pattern(1 << 20);
    auto written =
        std::async(std::launch::async, [&] { return ComHostWrite(number, bytes.data(), 1 << 20, -1); });
    std::string heard(bytes.size(), 0);
    for (std::size_t got = 0; got < heard.size();) {
        const int32_t more =
            ComHostRead(number, &heard[got], static_cast<int32_t>(heard.size() - got), 20000);
        ASSERT_GT(more, 0);
        got += static_cast<std::size_t>(more);
    }
    EXPECT_EQ(written.get(), 1 << 20);
    EXPECT_EQ(heard, bytes);
    EXPECT_EQ(ComHostDrain(number, 20000), 1);
    ComHostLineState state{};
    state.size = sizeof state;
    EXPECT_EQ(ComHostGetLine(number, &state), 1);
    EXPECT_EQ(state.dataBits, 7) << "settings are taken";
    EXPECT_EQ(ComHostGetLines(number), -4);
    ComHostCounters seen{};
    seen.size = sizeof seen;
    EXPECT_EQ(ComHostWaitEvent(number, COM_HOST_EVENT_CTS, &seen, 0), -4);
    EXPECT_EQ(ComHostClose(number, 5000), 1);
}

TEST(Tcp, AGreetingIsReadByAnyOpen) {
    const Listener listener;
    ComHostMapDevice(5, listener.path().c_str());
    auto greeted = std::async(std::launch::async, [&] {
        auto far = std::make_unique<Connection>(listener.accept());
        far->say("welcome");
        return far;
    });
    ASSERT_EQ(ComOpen("", 5, 9600, 8, 1, 1, 2048, 2048), 5);
    const auto far = greeted.get();
    char text[16] = "";
    EXPECT_EQ(ComReadTimed(5, text, 7, 2000), 7);
    EXPECT_STREQ(text, "welcome");
    EXPECT_GT(ComWrite(5, text, 7), 0);
    EXPECT_EQ(far->hear(7), "welcome");
    ComClose(5);
}

/// How a far end ends the line, and whether its last words are lost with it.
TEST(Tcp, AFarEndThatLeavesIsADeviceThatIsGone) {
    for (const bool reset : {false, true}) {
        const Listener listener;
        const FieldPort port(listener.path());
        Connection far = listener.accept();
        ComHostCounters seen = port.counters();
        auto told = std::async(std::launch::async, [&] {
            return ComHostWaitEvent(port.number, COM_HOST_EVENT_GONE, &seen, 20000);
        });
        far.say("last words");
        EXPECT_EQ(port.read(10), "last words");
        if (reset)
            far.reset();
        else
            far.close();
        EXPECT_EQ(told.get(), COM_HOST_EVENT_GONE);
        EXPECT_EQ(ComHostGetPortState(port.number), 2);
        char byte = 0;
        EXPECT_EQ(ComHostRead(port.number, &byte, 1, -1), -2);
        EXPECT_EQ(ComHostWrite(port.number, "x", 1, -1), -2);
        EXPECT_EQ(ComHostDescriptor(port.number), -2);
    }
}

/// Many rounds: in the course of them the thread attends to the port itself.
void hearsOfBytesAndOfTheEnd(const std::string& path, const std::function<void(const std::string&)>& say,
                             const std::function<void()>& leave) {
    const FieldPort port(path);
    ComSetNotifyThreadMessageAnyChar(port.number, ComHostThreadId());
    ComHostSetEventMessage(port.number, COM_HOST_EVENT_GONE, 0, ComHostThreadId());
    ComHostMessage message{};
    std::string heard;
    for (int round = 0; round < 50; ++round) {
        say("ping");
        ASSERT_EQ(ComHostGetMessage(&message, 20000), 1);
        heard += port.read(4);
    }
    EXPECT_EQ(heard.size(), 200U);
    leave();
    while (ComHostGetMessage(&message, 20000) == 1 && message.message != COM_HOST_MESSAGE_EVENT) {
    }
    EXPECT_EQ(message.message, static_cast<uint32_t>(COM_HOST_MESSAGE_EVENT));
    EXPECT_EQ(message.first, static_cast<uintptr_t>(COM_HOST_EVENT_GONE));
}

TEST(NetworkNotifications, TellOfBytesAndOfTheEnd) {
    RemoteServer server;
    hearsOfBytesAndOfTheEnd(
        server.path(), [&](const std::string& bytes) { server.say(bytes); }, [&] { server.hangUp(); });
    const Listener listener;
    std::optional<Connection> far;
    hearsOfBytesAndOfTheEnd(
        listener.path(),
        [&](const std::string& bytes) {
            if (!far)
                far.emplace(listener.accept());
            far->say(bytes);
        },
        [&] { far.reset(); });
}

TEST(Tcp, AFarEndThatStopsReadingHoldsUsOffAndNobodyElse) {
    const Listener listener;
    const FieldPort port(listener.path());
    const Connection far = listener.accept();
    const std::string bytes = pattern(32 << 20);
    const int32_t taken = port.write(bytes, 600);
    EXPECT_GT(taken, 0);
    EXPECT_LT(taken, static_cast<int32_t>(bytes.size()));
    EXPECT_EQ(ComHostDrain(port.number, 100), 0);
    far.say("still here");
    EXPECT_EQ(port.read(10), "still here");
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(ComHostClose(port.number, 100), 0);
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
    EXPECT_EQ(ComHostWaitEvent(port.number, COM_HOST_EVENT_GONE, &seen, 20000), COM_HOST_EVENT_GONE);
    EXPECT_EQ(ComHostGetPortState(port.number), 3);
    EXPECT_EQ(port.write("meanwhile", 0), 9);
    EXPECT_EQ(port.read(6), "before");
    std::this_thread::sleep_for(400ms); // some attempts are refused
    Listener again(at);
    Connection back = again.accept();
    EXPECT_EQ(back.hear(9), "meanwhile");
    back.say("after");
    EXPECT_EQ(port.read(5), "after");
    EXPECT_EQ(ComHostGetPortState(port.number), 1);
    EXPECT_EQ(port.counters().gone, 1U);
    EXPECT_EQ(port.counters().back, 1U);
}

} // namespace
} // namespace brisolt::test
