// A device that is pulled out, in whatever the port is doing at that moment: nothing crashes, spins or
// blocks, calls say what they always say, and the next device under the same name works.
#include <future>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 12;
constexpr auto quiet = 100ms; ///< of processor time in half a second of real time

/// In the mode that the parameter names, on a line under a name that stays, like that of an adapter.
class DeviceGone : public testing::TestWithParam<const char*> {
protected:
    DeviceGone() { plugIn(); }
    void plugIn() {
        line = std::make_unique<Pty>();
        std::filesystem::remove(name);
        std::filesystem::create_symlink(line->slavePath(), name);
        open = std::make_unique<OpenPort>(port, name, OpenPort::Shape{.name = GetParam()});
        ComSetWriteTimeout(port, 60000);
    }
    void pull() { line->close(); }
    static void expectQuiet() {
        EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, sleepHalfASecond), quiet);
    }
    /// What calls say of a line that is silent and takes nothing. Bytes of a write that fails are gone.
    static void expectCallsAnswer() {
        char buffer[20];
        EXPECT_EQ(ComStatus(port), 0);
        EXPECT_EQ(ComRead(port, buffer, 9), 0);
        EXPECT_EQ(ComGetc(port), -1);
        EXPECT_EQ(ComReadBuf(port, buffer, 13, 9, 1), 3);
        EXPECT_EQ(ComReadBufToQuiet(port, buffer, 9, 2), 0);
        EXPECT_EQ(ComReadBufToEmpty(port, buffer, 13, 9), 0);
        EXPECT_EQ(send(port, "lost"), 0);
        EXPECT_EQ(ComPuts(port, "lost|"), 1);
        EXPECT_EQ(Com_Flush(port, 0), 1);
        EXPECT_EQ(ComFlushOutBuf(port), 1);
        EXPECT_EQ(ComOutBufStatus(port), 0);
        EXPECT_EQ(ComSetFlow(port, 1), 1);
        EXPECT_EQ(ComGetLineError(port), 0);
        EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID,
                                  [&] { EXPECT_EQ(ComReadTimed(port, buffer, 9, 50), 0); }),
                  quiet);
    }
    /// Close, plug something in, and go on.
    void expectNextDeviceWorks() {
        FastClock fast(10); // a close in direct mode takes 5.6 s
        EXPECT_EQ(open->close(), 1);
        open.reset();
        plugIn();
        EXPECT_EQ(send(port, "back again"), 10);
        EXPECT_EQ(line->read(10), "back again");
        line->write("and again");
        EXPECT_EQ(readTimed(port, 9, 60000), "and again");
    }

    TempDir directory;
    std::string name = directory.file("adapter");
    std::unique_ptr<Pty> line;
    std::unique_ptr<OpenPort> open;
};

INSTANTIATE_TEST_SUITE_P(Mode, DeviceGone, testing::Values("threaded", "THUNK"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(DeviceGone, WhileNothingHappens) {
    pull();
    expectQuiet();
    expectCallsAnswer();
    ComSetBackgroundTimeout(port, 0);
    ComHostSetLossless(port, 1);
    expectQuiet();
    expectNextDeviceWorks();
}

/// Reads; or writes until the far end, which reads nothing, holds it off.
int32_t waitOnTheLine(bool writes) {
    char buffer[9];
    if (!writes)
        return ComReadTimed(port, buffer, 9, 100);
    for (;;)
        if (int32_t last = send(port, std::string(1000, 'x')); last < 1000)
            return last;
}

TEST_P(DeviceGone, WhileACallWaitsForTheLine) {
    for (const bool writes : {false, true}) {
        SCOPED_TRACE(writes ? "writes" : "reads");
        auto waiting = std::async(std::launch::async, waitOnTheLine, writes);
        EXPECT_EQ(waiting.wait_for(300ms), std::future_status::timeout);
        const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [&] {
            pull();
            EXPECT_EQ(waiting.wait_for(10s), std::future_status::ready);
        });
        EXPECT_LT(used, 2 * quiet);
        EXPECT_LT(waiting.get(), writes ? 1000 : 1);
        expectQuiet();
        expectCallsAnswer();
        expectNextDeviceWorks();
    }
}

// Nobody reads at the far end, so that device and ring are full when it goes.
TEST_P(DeviceGone, WhileALosslessRingIsFull) {
    ComHostSetLossless(port, 1);
    while (send(port, std::string(1000, 'x')) == 1000) {
    }
    EXPECT_EQ(ComOutBufStatus(port), 2048);
    pull();
    expectQuiet();
    // A line that goes down may take some bytes in its last moment; what it did not take is still there, and
    // the ring fills up again.
    const int32_t held = ComOutBufStatus(port);
    const int32_t added = send(port, std::string(3000, 'x'));
    EXPECT_EQ(ComOutBufStatus(port), held + added);
    EXPECT_GE(held + added, 2047);
    EXPECT_EQ(ComStatus(port), 0);
    expectQuiet();
    expectNextDeviceWorks();
}

} // namespace
} // namespace brisolt::test
