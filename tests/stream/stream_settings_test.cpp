// Discarding, resuming and the settings of the byte stream, with the other end of a null modem as witness.

#include "support/open_port.h"
#include "support/test_device.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 10;
constexpr char xoff = 0x13;

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

// ---- Discarding -------------------------------------------------------------------------------------------

TEST_F(StreamSettings, FlushDiscardsWhatHasComeAfterItsDelay) {
    FastClock fast(10);
    struct Case {
        const char* what;
        int32_t (*call)();
        uint32_t delay;
    };
    open.record().flushDelay = 2;
    const std::vector<Case> cases{{"the port's delay", [] { return ComFlush(port); }, 2000},
                                  {"its own", [] { return Com_Flush(port, 3); }, 3000},
                                  {"none", [] { return Com_Flush(port, 0); }, 0},
                                  {"negative", [] { return Com_Flush(port, INT32_MIN); }, 0}};
    for (int32_t yield : {1, 0})
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            ComSetYield(port, yield);
            arrive("old");
            {
                // What the device holds goes as well: nothing can have fetched it.
                HeldLock noRounds(open.inside());
                far.writeNow("newer");
                const uint32_t start = clock::ticks();
                EXPECT_EQ(c.call(), 1);
                EXPECT_GE(clock::ticks() - start, c.delay);
            }
            EXPECT_EQ(open.record().rxTail + open.record().rxHead, 0);
            arrive("fresh");
            EXPECT_EQ(readUpTo(port, 100), "fresh");
        }
    EXPECT_EQ(trace.entries({"ComFlush"}), std::vector<std::string>(8, "ComFlush called HWM:3 LWM:0"));
}

TEST_F(StreamSettings, AFlushMakesAFullRingTakeBytesAgain) {
    EXPECT_EQ(far.writeNow(std::string(4000, 'x')), 4000);
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 2048; }));
    EXPECT_EQ(Com_Flush(port, 0), 1);
    EXPECT_EQ(ComStatus(port), 0);
    arrive("on we go");
    EXPECT_EQ(readUpTo(port, 100), "on we go");
}

TEST_F(StreamSettings, FlushOutBufDiscardsRingAndDevice) {
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
    far.line(COM_HOST_LINE_SET_RTS);
    EXPECT_EQ(send(port, "end"), 3);
    EXPECT_NE(ComFlushImmediate(port), 0);
    std::string got;
    EXPECT_TRUE(eventually([&] { return (got += far.read()).size() >= 3; }));
    EXPECT_EQ(got, "end");
}

// A far end that has stopped us with an XOFF may never send the XON: its buffer is empty after a flush.
TEST_F(StreamSettings, FlushesResumeWhatAnXoffHasStopped) {
    struct Case {
        int32_t flow, code; ///< the flow control of the line, and the code in the record
        bool resumes;
    };
    const std::vector<Case> cases{{1, 1, true}, {5, 1, true}, {1, 5, true}, {1, 0, false}, {1, 2, false}};
    const std::vector<int32_t (*)()> flushes{[] { return Com_Flush(port, 0); },
                                             [] { return ComFlushOutBuf(port); }};
    for (const Case& c : cases)
        for (std::size_t flush = 0; flush < flushes.size(); ++flush) {
            SCOPED_TRACE(testing::Message() << "flow " << c.flow << " code " << c.code << " flush " << flush);
            ComSetFlow(port, 2); // forgets the last XOFF
            EXPECT_EQ(ComSetFlow(port, c.flow), 1);
            EXPECT_EQ(open.record().xonXoff, 1);
            open.record().xonXoff = c.code;
            far.writeNow({xoff});
            ComSetWriteTimeout(port, 50);
            EXPECT_EQ(send(port, "x"), 0);
            EXPECT_EQ(flushes[flush](), 1);
            EXPECT_EQ(send(port, "x"), c.resumes ? 1 : 0);
            EXPECT_EQ(far.read(), c.resumes ? "x" : "");
        }
}

// ---- Settings ---------------------------------------------------------------------------------------------

TEST_F(StreamSettings, AWriteEndsWithItsTimeOutUnlessThereIsNone) {
    ComSetFlow(port, 0);
    far.line(COM_HOST_LINE_CLEAR_RTS);
    ComSetWriteTimeout(port, 300);
    const auto start = SteadyClock::now();
    EXPECT_EQ(send(port, "lost"), 0);
    EXPECT_GE(SteadyClock::now() - start, 290ms);
    ComSetWriteTimeout(port, 0);
    auto writing = std::async(std::launch::async, [] { return send(port, "patience"); });
    EXPECT_EQ(writing.wait_for(500ms), std::future_status::timeout);
    far.line(COM_HOST_LINE_SET_RTS);
    EXPECT_EQ(writing.get(), 8);
    EXPECT_EQ(far.read(), "patience");
}

TEST_F(StreamSettings, MaxWriteCharsIsClamped) {
    for (const auto& [asked, applied] : std::vector<std::pair<int32_t, int32_t>>{
             {0, 1}, {INT32_MIN, 1}, {1, 1}, {1200, 1200}, {1201, 1200}, {INT32_MAX, 1200}}) {
        EXPECT_EQ(ComSetPortMaxWriteChars(port, asked), 1);
        EXPECT_EQ(open.record().maxWriteChars, applied) << asked;
    }
}

// The line says even parity and the far end odd, so that every byte arrives with an error.
TEST_F(StreamSettings, ErrorReplacementAndLineErrors) {
    const FastClock fast;
    EXPECT_EQ(open.close(), 1);
    ASSERT_TRUE(far.change([](ComHostLineState& state) { state.parity = COM_HOST_PARITY_ODD; }));
    struct Case {
        int32_t enable, replacement;
        const char* got;
    };
    for (const char* mode : {"threaded", "THUNK"}) {
        OpenPort even(port, "null-modem:settings", {.name = mode, .parity = 3});
        ComGetLineError(port);
        for (const Case& c :
             {Case{0, '?', "abc"}, Case{1, '?', "???"}, Case{7, '#' + 0x100, "###"}, Case{-1, '?', "abc"}}) {
            EXPECT_EQ(ComSetLineErrorReplacement(port, c.enable, c.replacement), 1);
            arrive("abc");
            EXPECT_EQ(readUpTo(port, 10), c.got) << mode;
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
