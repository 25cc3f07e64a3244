// Discarding, resuming and the settings of the byte stream, with the other end of a null modem as witness.

#include "support/open_port.h"
#include "support/test_device.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 10;

class StreamSettings : public testing::Test {
protected:
    StreamSettings() { ComSetPortDebugFile(port, trace.path().c_str()); }
    /// Sends and waits until it is in the ring.
    void arrive(const std::string& bytes) const {
        const int32_t all = ComStatus(port) + far.writeNow(bytes);
        ASSERT_TRUE(eventually([&] { return ComStatus(port) == all; }));
    }

    OpenPort open{port, "null-modem:settings"};
    TestDevice far{"null-modem:settings"};
    LogFile trace;
};

TEST_F(StreamSettings, FlushDiscardsWhatHasComeAfterItsDelay) {
    FastClock fast(10);
    const std::vector<std::tuple<const char*, int32_t (*)(), uint32_t>> cases{
        {"the port's delay", [] { return ComFlush(port); }, 2000},
        {"its own", [] { return Com_Flush(port, 3); }, 3000},
        {"none", [] { return Com_Flush(port, 0); }, 0},
        {"negative", [] { return Com_Flush(port, INT32_MIN); }, 0}};
    open.record().flushDelay = 2;
    for (int32_t yield : {1, 0})
        for (const auto& [what, flush, delay] : cases) {
            SCOPED_TRACE(what);
            ComSetYield(port, yield);
            EXPECT_EQ(far.writeNow(std::string(4000, 'x')), 4000);
            ASSERT_TRUE(eventually([] { return ComStatus(port) == 2048; })) << "the ring is full";
            {
                // What the device holds goes as well: nothing can have fetched it.
                HeldLock noRounds(open.inside());
                far.writeNow("newer");
                const uint32_t start = clock::ticks();
                EXPECT_EQ(flush(), 1);
                EXPECT_GE(clock::ticks() - start, delay);
            }
            EXPECT_EQ(open.record().rxTail + open.record().rxHead, 0);
            arrive("fresh");
            EXPECT_EQ(readUpTo(port, 100), "fresh");
        }
    EXPECT_EQ(trace.entries({"ComFlush"}).size(), 8U);
}

TEST_F(StreamSettings, WhatAHeldLineKeepsIsDiscardedByAFlushAndByTheEndOfItsWrite) {
    ComSetFlow(port, 0);
    far.line(COM_HOST_LINE_CLEAR_RTS);
    ComHostSetLossless(port, 1);
    EXPECT_EQ(send(port, std::string(1500, 'x')), 1500);
    EXPECT_EQ(ComOutBufStatus(port), 1500);
    EXPECT_GT(open.inside().device.status(COM_HOST_WANT_OUT).outQueue, 0U);
    EXPECT_GT(open.inside().tx.count(), 0);
    EXPECT_EQ(ComFlushImmediate(port), 0) << "nothing of it has been sent";
    EXPECT_EQ(ComFlushOutBuf(port), 1);
    EXPECT_EQ(ComOutBufStatus(port), 0);

    // A write that waits straight at the device ends with its time-out, unless there is none.
    ComHostSetLossless(port, 0);
    ComSetWriteTimeout(port, 300);
    const auto start = SteadyClock::now();
    EXPECT_EQ(send(port, "lost"), 0);
    EXPECT_GE(SteadyClock::now() - start, 290ms);
    ComSetWriteTimeout(port, 0);
    auto writing = std::async(std::launch::async, [] { return send(port, "patience"); });
    EXPECT_EQ(writing.wait_for(500ms), std::future_status::timeout);
    far.line(COM_HOST_LINE_SET_RTS);
    EXPECT_EQ(writing.get(), 8);
    EXPECT_NE(ComFlushImmediate(port), 0);
    EXPECT_EQ(far.read(), "patience") << "nothing else has been sent";
}

// A far end that has stopped us with an XOFF may never send the XON: its buffer is empty after a flush.
TEST_F(StreamSettings, FlushesResumeWhatAnXoffHasStopped) {
    ComSetWriteTimeout(port, 50);
    // The flow control of the line, the code in the record, and whether a flush resumes.
    for (const auto& [flow, code, resumes] :
         {std::tuple{1, 1, true}, {5, 1, true}, {1, 5, true}, {1, 0, false}, {1, 2, false}})
        for (const bool output : {false, true}) {
            SCOPED_TRACE(testing::Message() << "flow " << flow << " code " << code << " output " << output);
            ComSetFlow(port, 2); // forgets the last XOFF
            EXPECT_EQ(ComSetFlow(port, flow), 1);
            open.record().xonXoff = code;
            far.writeNow("\x13"); // XOFF
            EXPECT_EQ(send(port, "x"), 0);
            EXPECT_EQ(output ? ComFlushOutBuf(port) : Com_Flush(port, 0), 1);
            EXPECT_EQ(send(port, "x"), resumes ? 1 : 0);
            EXPECT_EQ(far.read(), resumes ? "x" : "");
        }
}

// The line says even parity and the far end odd, so that every byte arrives with an error.
TEST_F(StreamSettings, ErrorReplacementAndLineErrors) {
    const FastClock fast;
    EXPECT_EQ(open.close(), 1);
    ASSERT_TRUE(far.change([](ComHostLineState& state) { state.parity = COM_HOST_PARITY_ODD; }));
    for (const char* mode : {"threaded", "THUNK"}) {
        OpenPort even(port, "null-modem:settings", {.name = mode, .parity = 3});
        ComGetLineError(port);
        for (const auto& [enable, replacement, got] :
             {std::tuple{0, '?' + 0, "abc"}, {1, '?', "???"}, {7, '#' + 0x100, "###"}, {-1, '?', "abc"}}) {
            EXPECT_EQ(ComSetLineErrorReplacement(port, enable, replacement), 1);
            arrive("abc");
            EXPECT_EQ(readUpTo(port, 10), got) << mode;
            EXPECT_EQ(ComGetLineError(port), COM_HOST_ERROR_PARITY);
            EXPECT_EQ(ComGetLineError(port), 0);
        }
        ComHostLineState applied{};
        ASSERT_TRUE(even.inside().device.getLineState(applied));
        EXPECT_EQ(applied.errorChar, 0);
    }
}

} // namespace
} // namespace brisolt::test
