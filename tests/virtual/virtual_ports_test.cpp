// Ports that run over functions of the caller's.
#include <atomic>
#include <future>
#include <mutex>

#include "stream/open_port.h"

namespace brisolt::test {
namespace {

// ---- Every function takes the place of its call ----------------------------------------------------

std::vector<int64_t> seen; ///< the last call's arguments

int32_t onlyPort(int32_t port) {
    seen = {port};
    return 4711;
}
int32_t withValue(int32_t port, int32_t value) {
    seen = {port, value};
    return 4711;
}
int32_t withParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    seen = {port, parity, dataBits, stopBits};
    return 4711;
}
int32_t withBuffer(int32_t port, void* buffer, int32_t count) {
    seen = {port, reinterpret_cast<intptr_t>(buffer), count};
    return 4711;
}
int32_t withBytes(int32_t port, const void* buffer, int32_t count) {
    seen = {port, reinterpret_cast<intptr_t>(buffer), count};
    return 4711;
}

char bytes[8];
using Arguments = std::vector<int64_t>;

struct Dispatch {
    const char* name;
    int32_t (*set)(int32_t port, bool on);
    int32_t (*call)(int32_t port);
    Arguments further;
};
Dispatch rowOf(const char* name, int32_t (*set)(int32_t, bool), int32_t (*call)(int32_t), Arguments further) {
    return {name, set, call, std::move(further)};
}

// A call on port p, the function that takes its place, and what it is given beside the port.
#define DISPATCH(name, function, call, ...)                                                          \
    rowOf(                                                                                           \
        #name, [](int32_t p, bool on) { return ComSetCom##name##Func(p, on ? function : nullptr); }, \
        [](int32_t p) { return call; }, Arguments{__VA_ARGS__})
#define PLAIN(name) DISPATCH(name, onlyPort, Com##name(p))

const int64_t bytesAddress = reinterpret_cast<intptr_t>(bytes);
const Dispatch dispatches[] = {
    PLAIN(Break),
    PLAIN(Carrier),
    PLAIN(DTR),
    PLAIN(FlushOutBuf),
    PLAIN(Status),
    PLAIN(OutBufStatus),
    PLAIN(GetBreakStatus),
    PLAIN(GetCTSStatus),
    PLAIN(GetDSRStatus),
    PLAIN(SetDTR),
    PLAIN(ClearDTR),
    PLAIN(SetRTS),
    PLAIN(ClearRTS),
    DISPATCH(SetBaud, withValue, ComSetBaud(p, 300), 300),
    DISPATCH(SetFlow, withValue, ComSetFlow(p, 9), 9),
    DISPATCH(SetParms, withParms, ComSetParms(p, 6, 7, 8), 6, 7, 8),
    DISPATCH(Read, withBuffer, ComRead(p, bytes, 5), bytesAddress, 5),
    DISPATCH(Read, withBuffer, ComRead(p, nullptr, -8), 0, -8), // a count that is the function's business
    DISPATCH(Write, withBytes, ComWrite(p, bytes, 6), bytesAddress, 6),
};

void expectDispatch(int32_t port) {
    for (const Dispatch& dispatch : dispatches) {
        SCOPED_TRACE(dispatch.name);
        ASSERT_EQ(dispatch.set(port, true), 1);
        seen.clear();
        EXPECT_EQ(dispatch.call(port), 4711);
        Arguments expected{port};
        expected.insert(expected.end(), dispatch.further.begin(), dispatch.further.end());
        EXPECT_EQ(seen, expected);
        EXPECT_EQ(dispatch.set(port, false), 1);
        seen.clear();
        EXPECT_NE(dispatch.call(port), 4711);
        EXPECT_EQ(seen, Arguments{});
    }
    ASSERT_EQ(ComSetComFlushFunc(port, onlyPort), 1);
    EXPECT_EQ(ComFlush(port), 4711);
    seen.clear();
    EXPECT_EQ(Com_Flush(port, 60), 4711) << "at once";
    EXPECT_EQ(seen, Arguments{port});
    EXPECT_EQ(ComSetComFlushFunc(port, nullptr), 1);
    EXPECT_EQ(ComSetComRingFunc(port, onlyPort), 1);
    EXPECT_EQ(ComSetComUpdateStatusFunc(port, onlyPort), 1);
}

TEST(DriverFunctions, TakeThePlaceOfTheirCallsOnEveryKindOfPort) {
    ASSERT_EQ(ComVirtualOpen(6), 6);
    expectDispatch(6);
    EXPECT_EQ(ComVirtualClose(6), 1);
    const OpenPort device(7, "null-modem:dispatch");
    expectDispatch(device);
    for (const Dispatch& dispatch : dispatches)
        for (const int32_t closed : {-3, 0, 8, 300})
            EXPECT_EQ(dispatch.set(closed, true), -1) << dispatch.name;
}

// ---- A virtual port by itself ----------------------------------------------------------------------

TEST(VirtualPort, OpensOnceAndStartsAfresh) {
    EXPECT_EQ(ComVirtualOpen(0), -1);
    EXPECT_EQ(ComVirtualOpen(257), -1);
    ASSERT_EQ(ComVirtualOpen(5), 5);
    ComSetComStatusFunc(5, onlyPort);
    EXPECT_EQ(ComVirtualOpen(5), 5);
    EXPECT_EQ(ComStatus(5), 4711) << "the second open changes nothing";
    EXPECT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 2048, 2048), -2);
    EXPECT_EQ(ComOpenState(5), 1);
    EXPECT_EQ(ComPortdcb(5), -1);
    EXPECT_EQ(ComOutBufSize(5), 16384);
    EXPECT_NE(ComMalloc(5, 100), nullptr);
    EXPECT_EQ(ComVirtualClose(5), 1);
    EXPECT_EQ(ComVirtualClose(5), -1);

    ASSERT_EQ(ComVirtualOpen(5), 5);
    EXPECT_EQ(ComStatus(5), -1) << "no function of the last life";
    EXPECT_EQ(ComClose(5), 1) << "the usual close does it, too";
    const OpenPort device(5, "null-modem:no-virtual");
    EXPECT_EQ(ComVirtualClose(5), -1);
    EXPECT_EQ(ComOpenState(5), 1);
}

TEST(VirtualPort, WithoutFunctionsNothingIsThereAndNothingCrashes) {
    ASSERT_EQ(ComVirtualOpen(9), 9);
    char buffer[64] = {};
    for (auto* function : {ComStatus, ComGetc, ComOutBufStatus, ComFlush, ComFlushOutBuf, ComBreak,
                           ComSetBreak_ON, ComSetBreak_OFF, ComDTR, ComCarrier, ComSetDTR, ComClearRTS})
        EXPECT_EQ(function(9), -1);
    for (auto* function : {ComGetCTSStatus, ComGetDSRStatus, ComGetBreakStatus})
        EXPECT_EQ(function(9), 0);
    for (auto* function : {ComSetFlow, ComSetBaud, ComSetBits})
        EXPECT_EQ(function(9, 8), -1);
    EXPECT_EQ(ComRead(9, buffer, 4), -1);
    EXPECT_EQ(ComWrite(9, buffer, 4), -1);
    EXPECT_EQ(ComReadBuf(9, buffer, 13, 10, 1), 3);
    EXPECT_LE(ComReadTimed(9, buffer, 4, 11) + ComReadBufToQuiet(9, buffer, 10, 1), 0);
    // What needs a device, a thread or a ring.
    ComPuts(9, "AT|");
    for (auto* function : {ComSuspend, ComResume, ComSuspendPortWriteThru, ComGetLineError})
        function(9);
    ComSetBackgroundTimeout(9, 0);
    ComSetBackgroundPriority(9, 9);
    ComHostSetLossless(9, 1);
    ComSetNotifyThreadMessageAnyChar(9, ComHostThreadId());
    EXPECT_EQ(ComSleepMS(9, 20), 1);
    EXPECT_EQ(ComVirtualClose(9), 1);
}

TEST(VirtualPort, ACloseEndsAWaitAtOnce) {
    ASSERT_EQ(ComVirtualOpen(10), 10);
    ComSetComStatusFunc(10, [](int32_t) { return 0; });
    char buffer[4];
    auto waiting = std::async(std::launch::async, [&] { return ComReadTimed(10, buffer, 4, 100'000); });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(ComVirtualClose(10), 1);
    ASSERT_EQ(waiting.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(waiting.get(), -1);
}

TEST(VirtualPort, ThreadsOpenUseAndCloseTheSameNumbers) {
    const FastClock fast(500);
    std::atomic<bool> over{false};
    std::atomic<int32_t> reads{0};
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            char byte = 0;
            while (!over) {
                const int32_t port = 20 + i % 2;
                ComVirtualOpen(port);
                ComSetComReadFunc(port, [](int32_t, void*, int32_t) { return 0; });
                reads += ComRead(port, &byte, 1) == 0 ? 1 : 0;
                ComSleepMS(port, 1);
                if (i < 2)
                    ComVirtualClose(port);
            }
        });
    std::this_thread::sleep_for(500ms);
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(reads, 0);
    ComVirtualClose(20);
    ComVirtualClose(21);
}

// ---- A transport of the caller's -------------------------------------------------------------------

std::mutex transportLock;
std::string transport; ///< gives back what was written

int32_t transportStatus(int32_t) {
    const std::scoped_lock guard(transportLock);
    return static_cast<int32_t>(transport.size());
}
int32_t transportRead(int32_t, void* buffer, int32_t count) {
    const std::scoped_lock guard(transportLock);
    const std::size_t got = transport.copy(static_cast<char*>(buffer), static_cast<std::size_t>(count));
    transport.erase(0, got);
    return static_cast<int32_t>(got);
}
int32_t transportWrite(int32_t, const void* buffer, int32_t count) {
    const std::scoped_lock guard(transportLock);
    transport.append(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
    return count;
}

TEST(VirtualPort, ReadsAndWritesOverACallersTransport) {
    ASSERT_EQ(ComVirtualOpen(11), 11);
    ComSetComStatusFunc(11, transportStatus);
    ComSetComReadFunc(11, transportRead);
    ComSetComWriteFunc(11, transportWrite);
    ComSetSecurity(11, 1); // never on a virtual port
    EXPECT_EQ(ComPuts(11, "hello|"), 1);
    EXPECT_EQ(transport, "hello\r");
    EXPECT_EQ(ComGetc(11), 'h');
    char line[32] = {};
    EXPECT_EQ(ComReadBuf(11, line, '\r', 30, 10), 2);
    EXPECT_STREQ(line, "ello\r");
    // Nobody is told when such bytes come.
    auto reading = std::async(std::launch::async, [] { return readTimed(11, 1); });
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(ComPutc(11, '!'), 1);
    EXPECT_EQ(reading.get(), "!");
    EXPECT_EQ(ComVirtualClose(11), 1);
}

} // namespace
} // namespace brisolt::test
