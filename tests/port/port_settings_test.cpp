// What can be set on an open port: flow control, lines, the settings of the I/O thread, and tracked memory.
#include <algorithm>

#include <sys/resource.h>

#include "port/tracked_memory.h"
#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;
using Call = ScriptedDriver::Call;

namespace {

class Settings : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(openOn(5, driver.path()), 5); }
    void TearDown() override { ComClose(5); }

    const FastClock fast;
    ScriptedDriver driver;
};

TEST_F(Settings, FlowModesAsTheDeviceSeesThem) {
    constexpr uint32_t flow = 0x333C; // every flag that a mode decides on
    constexpr uint32_t cts = 0x04, dsr = 0x08, dtrOn = 0x10, dtrShake = 0x20, xon = 0x300, rtsOn = 0x1000,
                       rtsShake = 0x2000;
    const std::vector<std::tuple<int32_t, uint32_t, int32_t>> modes{
        {0, cts | dtrOn | rtsShake, 0},
        {1, xon | dtrOn | rtsOn, 1},
        {2, dtrOn | rtsOn, 0},
        {3, dsr | dtrShake | rtsOn, 0},
        {4, cts | dsr | dtrShake | rtsShake, 0},
        {5, xon | dsr | dtrShake | rtsOn, 1},
    };
    for (const uint32_t others : {0U, 0x7FFF & ~flow})
        for (const auto& [mode, flags, code] : modes) {
            ComHostLineState state = driver.lineState();
            state.flags = others | (~flags & flow);
            driver.setLineState(state);
            EXPECT_EQ(ComSetFlow(5, mode), 1);
            for (const int32_t unknown : {6, -1, INT32_MAX}) // which changes nothing
                EXPECT_EQ(ComSetFlow(5, unknown), -1);
            EXPECT_EQ(driver.lineState().flags, others | flags) << "mode " << mode;
            EXPECT_EQ(recordOf(5).xonXoff, code) << "mode " << mode;
            EXPECT_EQ(recordOf(5).lineState.flags, others | flags);
        }
    driver.refuse(Call::setLineState);
    driver.refuse(Call::line);
    EXPECT_EQ(ComSetFlow(5, 1), 1) << "whatever the device answers";
    for (auto* const function : {ComSetDTR, ComSetRTS, ComClearDTR, ComClearRTS})
        EXPECT_EQ(function(5), -2);
}

TEST_F(Settings, PaceAndPriorityOfTheThread) {
    for (const auto& [given, kept] : {std::pair{0U, 0U}, {10'000U, 10'000U}, {~0U, 10'000U}}) {
        EXPECT_EQ(ComSetBackgroundTimeout(5, given), 1);
        EXPECT_EQ(recordOf(5).threadSleep, kept);
    }
    // Downwards only: a program without privileges cannot raise a priority again.
    for (const auto& [level, niceness] : {std::pair{4, 5}, {1, 10}}) {
        EXPECT_EQ(ComSetBackgroundPriority(5, level), 1);
        EXPECT_EQ(getpriority(PRIO_PROCESS, recordOf(5).ioThread), niceness);
    }
    EXPECT_EQ(ComSetBackgroundPriority(5, 7), 1);
    EXPECT_EQ(ComSetBackgroundPriority(5, -3), 1);
}

TEST_F(Settings, TrackedMemoryBelongsToItsPort) {
    void* const blocks[] = {ComMalloc(5, 10), ComMalloc(5, 70'000), ComMalloc(5, 0)};
    void* const closedPorts = ComMalloc(7, 10); // a port need not be open to have memory
    const auto* const bytes = static_cast<const char*>(blocks[1]);
    EXPECT_TRUE(std::all_of(bytes, bytes + 70'000, [](char byte) { return byte == 0; }));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks[0]) % alignof(std::max_align_t), 0U);

    EXPECT_EQ(ComFree(6, blocks[0]), -1) << "another port's";
    EXPECT_EQ(ComFree(5, static_cast<char*>(blocks[0]) + 1), -1);
    for (void* const block : {blocks[1], blocks[0], blocks[2]}) { // the one in the middle first
        EXPECT_EQ(ComFree(5, block), 0);
        EXPECT_EQ(ComFree(5, block), -1);
    }
    EXPECT_EQ(tracked::outstanding(5), 0U);

    ASSERT_NE(ComMalloc(5, 10), nullptr);
    void* const last = ComMalloc(5, 10);
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_EQ(ComFree(5, last), -1) << "gone with the port";
    EXPECT_EQ(ComFree(7, closedPorts), 0);
    EXPECT_EQ(ComFreeAll(5), 1);
}

} // namespace
