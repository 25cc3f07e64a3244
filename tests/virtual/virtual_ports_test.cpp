// Ports that run over functions of the caller's.
#include <atomic>
#include <future>
#include <mutex>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

using Arguments = std::vector<int64_t>;
Arguments seen; ///< the last call's

int64_t valueOf(int32_t argument) {
    return argument;
}
int64_t valueOf(const void* argument) {
    return reinterpret_cast<intptr_t>(argument);
}
template <class... Further> int32_t note(int32_t port, Further... further) {
    seen = {port, valueOf(further)...};
    return 4711;
}

template <class Set, class Function, class Call>
void expectTaken(int32_t port, Set set, Function function, Call call, Arguments arguments = {}) {
    ASSERT_EQ(set(port, function), 1);
    EXPECT_EQ(call(port), 4711);
    arguments.insert(arguments.begin(), port);
    EXPECT_EQ(std::exchange(seen, {}), arguments);
    EXPECT_EQ(set(port, nullptr), 1);
    EXPECT_NE(call(port), 4711);
    EXPECT_EQ(seen, Arguments{});
}

void expectDispatch(int32_t port) {
    static char bytes[8];
    const auto address = valueOf(bytes);
    int32_t (*const setters[])(int32_t, ComPortFunc) = {
        ComSetComBreakFunc,        ComSetComCarrierFunc,      ComSetComDTRFunc,
        ComSetComFlushFunc,        ComSetComFlushOutBufFunc,  ComSetComRingFunc,
        ComSetComStatusFunc,       ComSetComOutBufStatusFunc, ComSetComGetBreakStatusFunc,
        ComSetComGetCTSStatusFunc, ComSetComGetDSRStatusFunc, ComSetComSetDTRFunc,
        ComSetComClearDTRFunc,     ComSetComSetRTSFunc,       ComSetComClearRTSFunc};
    int32_t (*const calls[])(int32_t) = {ComBreak,          ComCarrier,      ComDTR,          ComFlush,
                                         ComFlushOutBuf,    ComRing,         ComStatus,       ComOutBufStatus,
                                         ComGetBreakStatus, ComGetCTSStatus, ComGetDSRStatus, ComSetDTR,
                                         ComClearDTR,       ComSetRTS,       ComClearRTS};
    for (std::size_t i = 0; i < std::size(calls); ++i)
        expectTaken(port, setters[i], note<>, calls[i]);
    expectTaken(port, ComSetComFlushFunc, note<>, [](int32_t p) { return Com_Flush(p, 60); });
    expectTaken(port, ComSetComSetBaudFunc, note<int32_t>, [](int32_t p) { return ComSetBaud(p, 300); },
                {300});
    expectTaken(port, ComSetComSetFlowFunc, note<int32_t>, [](int32_t p) { return ComSetFlow(p, 9); }, {9});
    const auto setParms = [](int32_t p) { return ComSetParms(p, 6, 7, 8); };
    expectTaken(port, ComSetComSetParmsFunc, note<int32_t, int32_t, int32_t>, setParms, {6, 7, 8});
    const auto read = note<void*, int32_t>; // whatever the count is: that is the function's business
    expectTaken(port, ComSetComReadFunc, read, [](int32_t p) { return ComRead(p, bytes, 5); }, {address, 5});
    expectTaken(port, ComSetComReadFunc, read, [](int32_t p) { return ComRead(p, nullptr, -8); }, {0, -8});
    const auto write = note<const void*, int32_t>;
    expectTaken(port, ComSetComWriteFunc, write, [](int32_t p) { return ComWrite(p, bytes, 6); },
                {address, 6});
    EXPECT_EQ(ComSetComUpdateStatusFunc(port, note<>), 1);
}

TEST(DriverFunctions, TakeThePlaceOfTheirCallsOnEveryKindOfPort) {
    const FastClock fast; // without a function a flush waits
    ASSERT_EQ(ComVirtualOpen(6), 6);
    expectDispatch(6);
    EXPECT_EQ(ComVirtualClose(6), 1);
    const OpenPort device(7, "null-modem:dispatch");
    expectDispatch(device);
    EXPECT_EQ(ComVirtualClose(7), -1);
}

TEST(VirtualPort, OpensOnceAndStartsAfresh) {
    ASSERT_EQ(ComVirtualOpen(5), 5);
    ComSetComStatusFunc(5, note<>);
    EXPECT_EQ(ComVirtualOpen(5), 5);
    EXPECT_EQ(ComStatus(5), 4711) << "the second open changes nothing";
    EXPECT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 2048, 2048), -2);
    EXPECT_EQ(ComOutBufSize(5), 16384);
    EXPECT_EQ(ComVirtualClose(5), 1);
    EXPECT_EQ(ComVirtualClose(5), -1);
    EXPECT_EQ(ComVirtualOpen(5), 5);
    EXPECT_EQ(ComStatus(5), -1) << "no function of the last life";
    EXPECT_EQ(ComClose(5), 1) << "the usual close does it, too";
}

TEST(VirtualPort, WithoutFunctionsNothingIsThereAndNothingCrashes) {
    ASSERT_EQ(ComVirtualOpen(9), 9);
    char buffer[64] = {};
    for (auto* function : {ComStatus, ComGetc, ComOutBufStatus, ComFlush, ComFlushOutBuf, ComBreak,
                           ComSetBreak_ON, ComSetBreak_OFF, ComDTR, ComCarrier, ComSetDTR, ComClearRTS})
        EXPECT_EQ(function(9), -1);
    for (auto* function : {ComGetCTSStatus, ComGetDSRStatus, ComGetBreakStatus})
        EXPECT_EQ(function(9), 0);
    EXPECT_EQ(ComSetBaud(9, 300), -1);
    for (auto* function : {ComRead, ComWrite})
        EXPECT_EQ(function(9, buffer, 4), -1);
    EXPECT_EQ(ComReadBuf(9, buffer, 13, 10, 1), 3);
    EXPECT_LE(ComReadTimed(9, buffer, 4, 11), 0);
    // What needs a device, a thread or a ring.
    ComPuts(9, "AT|");
    for (auto* function : {ComSuspend, ComResume, ComSuspendPortWriteThru, ComGetLineError})
        function(9);
    ComSetBackgroundTimeout(9, 0), ComSetBackgroundPriority(9, 9), ComHostSetLossless(9, 1);
    ComSetNotifyThreadMessageAnyChar(9, ComHostThreadId());
    EXPECT_EQ(ComSleepMS(9, 20), 1);
    ComSetComStatusFunc(9, [](int32_t) { return 0; });
    auto waiting = std::async(std::launch::async, ComReadTimed, 9, buffer, 4, 100'000);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(ComVirtualClose(9), 1);
    ASSERT_EQ(waiting.wait_for(10s), std::future_status::ready) << "a close ends a wait at once";
    EXPECT_EQ(waiting.get(), -1);
}

std::mutex transportLock;
std::string transport; ///< gives back what was written

TEST(VirtualPort, ReadsAndWritesOverACallersTransport) {
    ASSERT_EQ(ComVirtualOpen(11), 11);
    ComSetComStatusFunc(11, [](int32_t) {
        const std::scoped_lock guard(transportLock);
        return static_cast<int32_t>(transport.size());
    });
    ComSetComReadFunc(11, [](int32_t, void* buffer, int32_t count) {
        const std::scoped_lock guard(transportLock);
        const std::size_t got = transport.copy(static_cast<char*>(buffer), static_cast<std::size_t>(count));
        transport.erase(0, got);
        return static_cast<int32_t>(got);
    });
    ComSetComWriteFunc(11, [](int32_t, const void* buffer, int32_t count) {
        const std::scoped_lock guard(transportLock);
        transport.append(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
        return count;
    });
    ComSetSecurity(11, 1); // never on a virtual port
    EXPECT_EQ(ComPuts(11, "hello|"), 1);
    EXPECT_EQ(transport, "hello\r");
    EXPECT_EQ(ComGetc(11), 'h');
    char line[32] = {};
    EXPECT_EQ(ComReadBuf(11, line, '\r', 30, 10), 2);
    EXPECT_STREQ(line, "ello\r");
    static std::atomic<int32_t> answer;
    HeldPort(11)->record->escapeFunc = [](int32_t, int32_t) { return answer.load(); };
    for (const int32_t escaped : {1, 2, -1}) { // whatever an escape function says but 0
        answer = escaped;
        ComPutc(11, 'x');
        EXPECT_EQ(ComReadBuf(11, line, '\r', 30, 60), 4);
        EXPECT_STREQ(line, "x");
        EXPECT_EQ(ComGetBufLen(11), 0);
    }
    EXPECT_EQ(ComReadBuf(11, line, '\r', 30, 60), 4) << "although nothing has come";
    answer = 0;
    // Nobody is told when such bytes come.
    auto reading = std::async(std::launch::async, [] { return readTimed(11, 1); });
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(ComPutc(11, '!'), 1);
    EXPECT_EQ(reading.get(), "!");
    EXPECT_EQ(ComVirtualClose(11), 1);
}

} // namespace
} // namespace brisolt::test
