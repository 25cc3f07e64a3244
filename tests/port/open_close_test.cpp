// Opening and closing, step by step: what is done to the device and in which order, what each refusal gives,
// and what a port looks like when it is open.
#include <functional>

#include <fcntl.h>
#include <unistd.h>

#include "platform/memory.h"
#include "platform/thread.h"
#include "support/limit.h"
#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;
using Call = ScriptedDriver::Call;

namespace {

struct Framing {
    int32_t baudRate = 9600, dataBits = 8, parity = 1, stopBits = 1;
};

/// Port 5 on a scripted device, by either open.
class Opening : public testing::Test {
protected:
    void SetUp() override { ComHostMapDevice(5, driver.path().c_str()); }
    void TearDown() override { ComClose(5); }

    static int32_t open(const Framing& f = {}, uint32_t rx = 2048, uint32_t tx = 2048) {
        return ComOpen("COM", 5, f.baudRate, f.dataBits, f.parity, f.stopBits, rx, tx);
    }
    int32_t adopt(const Framing& f = {}, const char* name = "COM") {
        if (handle < 0)
            handle = ComHostOpenDevice(driver.path().c_str());
        return ComPreOpen(name, 5, f.baudRate, f.dataBits, f.parity, f.stopBits, 2048, 2048, handle);
    }
    /// Whether the handle that a port adopted is still its owner's.
    bool handleSurvived() {
        const bool survived = ComHostCloseDevice(handle) == 1;
        handle = -1;
        return survived;
    }

    const FastClock fast;
    ScriptedDriver driver;
    int32_t handle = -1;
};

struct Refusal {
    const char* what;
    int32_t code;
    std::function<void(ScriptedDriver&)> arrange;
    Framing framing{};
    bool handleSurvives = true; ///< of the adopting open
    bool ofBoth = true;         ///< not of the adopting open alone
};
auto refuses(Call call, int32_t after = 0) {
    return [=](ScriptedDriver& driver) { driver.refuse(call, ScriptedDriver::always, after); };
}
const auto nothing = [](ScriptedDriver&) {};
const auto checksNothing = [](ScriptedDriver& driver) { driver.setCapabilities(0); };
const auto noThread = [](ScriptedDriver&) { thread::failStarts(1); };
const Limit descriptors(RLIMIT_NOFILE);
/// None is left for the event that the port needs.
const auto noDescriptor = [](ScriptedDriver&) {
    const int next = dup(STDIN_FILENO);
    close(next);
    descriptors.set(static_cast<rlim_t>(next));
};

const Refusal refusals[] = {
    {"first event mask", -27, refuses(Call::setEventMask)},
    {"event", -29, noDescriptor},
    {"queues", -30, refuses(Call::setQueues)},
    {"time-outs", -39, refuses(Call::setTimeouts)},
    {"parity 0", -33, nothing, {.dataBits = 7, .parity = 0}, false},
    {"parity 6", -33, nothing, {.dataBits = 7, .parity = 6}, false},
    {"data bits 3", -34, nothing, {.dataBits = 3}, false},
    {"data bits 9", -34, nothing, {.dataBits = 9}, false},
    {"stop bits 0", -35, nothing, {.stopBits = 0}, false},
    {"stop bits 4", -35, nothing, {.stopBits = 4}, false},
    {"line state", -36, refuses(Call::setLineState)},
    {"thread", -38, noThread},
    {"properties", -26, refuses(Call::properties), {}, true, false},
    {"second event mask", -27, refuses(Call::setEventMask, 1), {}, true, false},
    {"baud rate", -32, nothing, {.baudRate = 1'000'001}, true, false},
    {"negative baud rate", -32, nothing, {.baudRate = -1}, true, false},
    {"8 bits with parity", -34, nothing, {.parity = 3}, true, false},
    {"8 bits, parity not checked", -34, checksNothing, {.parity = 0}, true, false},
};

TEST_F(Opening, EachRefusalHasItsCodeAndLeavesNothingBehind) {
    for (const bool adopting : {false, true})
        for (const Refusal& refusal : refusals) {
            if (!adopting && !refusal.ofBoth)
                continue;
            SCOPED_TRACE(std::string(refusal.what) + (adopting ? ", adopting" : ""));
            ScriptedDriver refusing("scripted-refusing");
            ComHostMapDevice(5, refusing.path().c_str());
            if (adopting)
                handle = ComHostOpenDevice(refusing.path().c_str());
            refusal.arrange(refusing);
            EXPECT_EQ(adopting ? adopt(refusal.framing) : open(refusal.framing), refusal.code);
            descriptors.lift();
            thread::failStarts(0);
            EXPECT_EQ(ComOpenState(5), 0);
            EXPECT_EQ(ComPidtoP(5), nullptr);
            if (adopting) {
                EXPECT_EQ(handleSurvived(), refusal.handleSurvives);
            }
            EXPECT_EQ(refusing.devices(), 0);
            EXPECT_EQ(refusing.count(Call::open), 1);
            ComHostMapDevice(5, driver.path().c_str());
            EXPECT_EQ(adopting ? adopt() : open(), 5) << "the number is free";
            EXPECT_EQ(adopting ? ComPreClose(5) : ComClose(5), 1);
            EXPECT_TRUE(!adopting || handleSurvived());
        }
}

TEST_F(Opening, NumbersHandlesAndDevicesThatDoNotExist) {
    const int plainFile = ::open("/dev/null", O_RDWR);
    for (const int32_t bad : {-1, 1'000'000, plainFile})
        EXPECT_EQ(CPreOpen(5, 9600, 8, 1, 1, bad), -25) << bad;
    EXPECT_GE(fcntl(plainFile, F_GETFD), 0);
    close(plainFile);

    // The second name is tried for the numbers that have one.
    driver.refuse(Call::open);
    for (const auto& [port, attempts] : {std::pair{5, 2}, {9, 2}, {10, 1}, {256, 1}}) {
        driver.forgetCalls();
        EXPECT_EQ(openOn(port, driver.path()), -25);
        EXPECT_EQ(driver.count(Call::open), attempts) << port;
    }
    driver.refuse(Call::open, 1);
    EXPECT_EQ(open(), 5);
    EXPECT_EQ(ComPortdcb(5), recordOf(5).device.load());

    driver.forgetCalls();
    EXPECT_EQ(open(), -2);
    EXPECT_EQ(CPreOpen(5, 9600, 8, 1, 1, 0), -2);
    EXPECT_EQ(driver.settings(), "") << "the open port is left alone";
    EXPECT_EQ(ComOpenState(5), 1);
}

TEST_F(Opening, EveryAllocationMayFail) {
    for (const bool adopting : {false, true}) {
        std::vector<int32_t> codes;
        do {
            memory::failAllocations(static_cast<int32_t>(codes.size()), 1);
            codes.push_back(adopting ? adopt() : open());
            memory::failAllocations(0, 0);
            EXPECT_EQ(ComOpenState(5), codes.back() < 0 ? 0 : 1);
        } while (codes.back() < 0 && codes.size() < 20);
        EXPECT_EQ(codes, (std::vector{-20, -21, -22, -23, 5}));
        EXPECT_EQ(adopting ? ComPreClose(5) : ComClose(5), 1);
    }
    EXPECT_TRUE(handleSurvived());
    EXPECT_EQ(open({}, 0x80000000U, 2048), -22) << "positions are signed";
    EXPECT_EQ(open({}, 2048, 0xFFFFFFFFU), -23);
    EXPECT_EQ(ComPidtoP(5), nullptr);
    EXPECT_EQ(driver.devices(), 0);
}

// The device comes with everything switched on, so that the flags show what an open switches off.
TEST_F(Opening, StepsOfBothOpensAndCloses) {
    ComHostLineState all = driver.lineState();
    all.flags = 0x7FFF;
    driver.setLineState(all);
    const Framing framing{.baudRate = 19200, .dataBits = 7, .parity = 3, .stopBits = 3};
    EXPECT_EQ(open(framing), 5);
    EXPECT_EQ(ComClose(5), 1);
    const std::string applied = "setLineState 19200 7/2/1 flags 5013 limits 256 768 chars 11 13 00 1a 00\n";
    const std::string queues = "setEventMask 168\nsetQueues 1024 1024\n";
    const std::string line = "purge c\ngetLineState\npurge f\n";
    const std::string end = "getLineState\n"
                            "purge c\nline 5\nline 3\nsetEventMask 0\ngetLineState\npurge f\n" +
                            applied + "line 5\nline 3\ncancel 1\n";
    EXPECT_EQ(driver.settings(), "open\nproperties\n" + queues + "getTimeouts\nsetTimeouts -1 0 0 0 2000\n" +
                                     line + applied + end + "line 6\nclose\n");

    driver.forgetCalls();
    driver.setLineState(all);
    EXPECT_EQ(adopt(framing), 5);
    EXPECT_EQ(ComPreClose(5), 1);
    EXPECT_TRUE(handleSurvived());
    const std::string withoutRts =
        "setLineState 19200 7/2/1 flags 4013 limits 256 768 chars 11 13 00 1a 00\n";
    EXPECT_EQ(driver.settings(), "open\ncancel 0\nproperties\nsetEventMask 0\n" + queues +
                                     "setTimeouts 0 0 0 0 -1\n" + line + withoutRts + end + "close\n");
}

TEST_F(Opening, AdoptingLeavesParityAloneThatTheDeviceCannotCheck) {
    driver.setCapabilities(0);
    EXPECT_EQ(adopt({.dataBits = 7, .parity = 77}), 5);
    EXPECT_EQ(driver.lineState().parity, COM_HOST_PARITY_ODD) << "as it was";
    EXPECT_EQ(driver.lineState().flags & COM_HOST_LINE_PARITY_CHECK, 0U);
    EXPECT_EQ(ComPreClose(5), 1);
    EXPECT_TRUE(handleSurvived());
    driver.refuse(Call::properties);
    EXPECT_EQ(open({.parity = 5}), 5) << "an open of our own goes on without properties";
    EXPECT_EQ(driver.lineState().parity, COM_HOST_PARITY_SPACE);
}

TEST_F(Opening, DirectModeHasNoThreadAndAnAdoptedPortIsNeverDirect) {
    EXPECT_EQ(adopt({}, "THUNK"), 5);
    EXPECT_EQ(recordOf(5).ioMode, ioThreaded);
    EXPECT_EQ(recordOf(5).device, handle);
    EXPECT_EQ(ComPreClose(5), 1);
    EXPECT_TRUE(handleSurvived());
    const uint32_t before = clock::ticks();
    EXPECT_EQ(openOn(5, driver.path(), "THUNK with a name beyond its field"), 5);
    EXPECT_EQ(recordOf(5).ioMode, ioThreaded);
    EXPECT_STREQ(recordOf(5).deviceName, "THUNK with a name beyond its fi");
    EXPECT_STREQ(recordOf(5).discStr, "ATH0|");
    EXPECT_LE(static_cast<uint32_t>(ComStartupTime(5)) - before, recordOf(5).threadStartTick - before);
    EXPECT_EQ(ComClose(5), 1);

    driver.forgetCalls();
    EXPECT_EQ(openOn(5, driver.path(), "THUNK"), 5);
    EXPECT_EQ(recordOf(5).ioMode, ioDirect);
    EXPECT_EQ(recordOf(5).ioThread, 0U);
    EXPECT_EQ(driver.count(Call::wait), 0);
}

// Nothing tells a close in direct mode that it need not wait.
TEST_F(Opening, ClosesTakeTheirTime) {
    const auto ticksOf = [](auto close) {
        const uint32_t start = clock::ticks();
        EXPECT_EQ(close(5), 1);
        return clock::ticks() - start;
    };
    EXPECT_EQ(openOn(5, driver.path(), "THUNK"), 5);
    EXPECT_GE(ticksOf(ComClose), 5600U);
    EXPECT_EQ(openOn(5, driver.path(), "THUNK"), 5);
    EXPECT_GE(ticksOf(ComPreClose), 1600U);

    clock::setTestScale(1);
    EXPECT_EQ(open(), 5);
    const uint32_t threaded = ticksOf(ComClose);
    EXPECT_GE(threaded, 600U);
    EXPECT_LT(threaded, 4000U);
}

} // namespace
