// What costs nothing: ports on which nothing happens, however much their program wants to be told; and devices that
// say that they are ready and then are not.
#include <filesystem>
#include <fstream>
#include <map>

#include <unistd.h>

#include "field/field_port.h"
#include "support/limit.h"
#include "support/pty.h"
#include "support/scripted_driver.h"

namespace brisolt::test {
namespace {

/// How often this thread and the library's have gone to sleep so far. Not the one that looks for devices: where
/// others of the machine make pseudo terminals beside ours, that is news.
int64_t sleeps() {
    int64_t sum = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        bool counts = true;
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("Name:", 0) == 0)
                counts = task.path().filename() == std::to_string(getpid()) ||
                         (line.rfind("Name:\tbrisolt-", 0) == 0 && line != "Name:\tbrisolt-keep");
            if (counts && line.rfind("voluntary_ctxt_switches:", 0) == 0)
                sum += std::stoll(line.substr(line.find(':') + 1));
        }
    }
    return sum;
}

TEST(Idle, ManyKeptPortsThatTellEverythingSleep) {
    constexpr int32_t most = 256;
    const Limit files(RLIMIT_NOFILE, RLIM_INFINITY);
    std::map<int32_t, Pty> lines;
    for (int32_t port = 1; port <= most; ++port) {
        ComHostMapDevice(port, (lines[port].slavePath() + "?keep=yes").c_str());
        ASSERT_EQ(ComOpen("idle", port, 115200, 8, 1, 1, 4096, 4096), port) << errorTextNow();
        EXPECT_EQ(ComHostSetEventMessage(port,
                                         COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK | COM_HOST_EVENT_BREAK, 0,
                                         ComHostThreadId()),
                  1);
        ComSetBackgroundTimeout(port, port % 2 == 0 ? 0 : 50);
        if (port > 8)
            continue;
        char byte = 0; // somebody has used the port before, and has left
        lines[port].write("x");
        EXPECT_EQ(ComReadTimed(port, &byte, 1, 1000), 1);
        EXPECT_EQ(ComPutc(port, 'y'), 1);
    }
    EXPECT_EQ(ComHostSetDeviceMessage(0, ComHostThreadId()), 1);
    std::this_thread::sleep_for(1s);
    const int64_t before = sleeps();
    std::this_thread::sleep_for(2s);
    EXPECT_LE(sleeps() - before, 8) << "one is this thread's";
    for (int32_t port = 1; port <= most; ++port)
        ComHostClose(port, 0);
}

TEST(Idle, ADeviceThatSaysItIsReadyAndIsNotKeepsNobodyRunning) {
    constexpr int64_t mostTries = 3000; // in a second; unbraked it is a million
    using Call = ScriptedDriver::Call;
    ScriptedDriver driver;
    driver.refuse(Call::write);
    driver.refuse(Call::read);
    driver.feed("unreadable");
    const FieldPort port(driver.path());
    driver.forgetCalls();
    std::string bytes(200'000, 'x');
    EXPECT_EQ(ComHostRead(port, bytes.data(), 9, 1000), 0);
    EXPECT_LT(driver.count(Call::read), mostTries);
    driver.forgetCalls();
    EXPECT_LT(port.write(bytes, 1000), 200'000);
    EXPECT_LT(driver.count(Call::write), mostTries);
}

TEST(Idle, WhatADeviceCountsAndDoesNotTellIsFoundWhenThePortIsLookedAtAnyway) {
    ScriptedDriver driver("counting", ScriptedDriver::Waits::yes, ScriptedDriver::Counts::yes);
    const FieldPort port(driver.path());
    ASSERT_EQ(ComHostSetEventMessage(port, COM_HOST_EVENT_CTS, 0, ComHostThreadId()), 1);
    driver.setCtsChanges(1);
    driver.feed("x");
    ComHostMessage message{};
    EXPECT_EQ(ComHostGetMessage(&message, 5000), 1);
    EXPECT_EQ(message.message, COM_HOST_MESSAGE_EVENT);
    EXPECT_EQ(message.first, COM_HOST_EVENT_CTS);
}

} // namespace
} // namespace brisolt::test
