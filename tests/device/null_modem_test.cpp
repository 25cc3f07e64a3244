// The null modem as the port engine calls it.
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "device/device.h"
#include "platform/clock.h"
#include "platform/error_text.h"
#include "platform/signal.h"
#include "port/ports.h"

using namespace brisolt;
using test::eventually;

namespace {

constexpr int32_t allLines = COM_HOST_MODEM_CTS | COM_HOST_MODEM_DSR | COM_HOST_MODEM_CARRIER;
constexpr int32_t canceled = static_cast<int32_t>(std::errc::operation_canceled);

/// An open end, with the calls of a device in the shape the tests like.
struct End : Device {
    int32_t opened;

    explicit End(const std::string& path) : opened(open(path)) {
        if (opened > 0)
            writeTime(UINT32_MAX); // what holds a test's write is to end it
    }

    template <typename Change> void change(Change change) const {
        ComHostLineState state{};
        ASSERT_TRUE(getLineState(state));
        change(state);
        ASSERT_TRUE(setLineState(state));
    }
    void flags(uint32_t on, uint32_t off = 0) const {
        change([&](ComHostLineState& s) { s.flags = (s.flags & ~off) | on; });
    }
    void writeTime(uint32_t constant) const {
        ASSERT_TRUE(setTimeouts({sizeof(ComHostTimeouts), UINT32_MAX, 0, 0, 0, constant}));
    }
    int32_t lines() const {
        uint32_t lines = 0;
        EXPECT_TRUE(modemStatus(lines));
        return static_cast<int32_t>(lines);
    }
    uint32_t inQueue() const { return status(COM_HOST_WANT_IN).inQueue; }
    uint32_t outQueue() const { return status(COM_HOST_WANT_OUT).outQueue; }
    uint32_t errors() const { return status(COM_HOST_WANT_ERRORS).errors; }
    int32_t write(const std::string& bytes, uint32_t how, int32_t& error) const {
        return Device::write(bytes.data(), static_cast<int32_t>(bytes.size()), how, error);
    }
    int32_t write(const std::string& bytes, uint32_t how = COM_HOST_WRITE_COMPLETE) const {
        int32_t error = 0;
        return write(bytes, how, error);
    }
    int32_t writeNow(const std::string& bytes) const { return write(bytes, COM_HOST_WRITE_NOW); }
    std::string read(size_t most = 100000) const {
        std::string bytes(most, '\0');
        bytes.resize(static_cast<size_t>(Device::read(bytes.data(), static_cast<int32_t>(most))));
        return bytes;
    }
    int32_t wait(uint32_t events, int32_t milliseconds, int32_t wake = -1) const {
        return static_cast<int32_t>(Device::wait(events, wake, milliseconds));
    }
    bool polls() const {
        Watch watch{.descriptor = handle(), .forRead = true};
        return waitAny({&watch, 1}, 0) > 0;
    }
};

/// A complete write on a thread of its own: how many bytes it took, and its error.
using Writing = std::future<std::pair<int32_t, int32_t>>;
Writing writing(const End& end, const std::string& bytes) {
    return std::async(std::launch::async, [&end, bytes] {
        int32_t error = 1;
        const int32_t taken = end.write(bytes, COM_HOST_WRITE_COMPLETE, error);
        return std::pair(taken, error);
    });
}
bool done(const Writing& writing) {
    return writing.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

void rest(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace

TEST(NullModem, RefusesPathsAndAThirdOpenAndForgetsClosedCables) {
    for (const char* path : {"null-modem:", "null-modem:?paced", "null-modem:x?fast"})
        EXPECT_EQ(End(path).opened, -static_cast<int32_t>(std::errc::invalid_argument)) << path;

    End first("null-modem:busy"), second("NULL-MODEM:busy?paced"), third("null-modem:busy");
    EXPECT_EQ(third.opened, -static_cast<int32_t>(std::errc::device_or_resource_busy));
    EXPECT_EQ(errorText(), "null-modem:busy: both ends are open");
    End otherName("null-modem:Busy");
    EXPECT_EQ(otherName.opened, 1);
    EXPECT_EQ(otherName.lines(), 0) << "names that differ in case are two cables";

    first.close();
    second.close();
    EXPECT_EQ(drivers::ringNullModem("null-modem:busy", true), -1) << "the cable is gone";
}

TEST(NullModem, LinesAreLowWithoutAPeer) {
    End left("null-modem:lines");
    EXPECT_EQ(drivers::ringNullModem("null-modem:lines", true), 1);
    EXPECT_EQ(left.lines(), 0) << "nobody rings an end that is not connected";
    {
        End right("null-modem:lines");
        EXPECT_EQ(left.lines(), allLines | COM_HOST_MODEM_RING);
        EXPECT_EQ(right.lines(), allLines | COM_HOST_MODEM_RING);
        EXPECT_EQ(drivers::ringNullModem("null-modem:lines?paced", false), 1);
        left.line(COM_HOST_LINE_CLEAR_DTR);
        EXPECT_EQ(right.lines(), COM_HOST_MODEM_CTS);
        left.change([](ComHostLineState& s) { s.baudRate = 1200; });
        EXPECT_EQ(right.lines(), COM_HOST_MODEM_CTS) << "a new rate does not raise DTR";
        left.flags(0, COM_HOST_LINE_DTR_ON | COM_HOST_LINE_RTS_ON);
        EXPECT_EQ(right.lines(), 0);
    }
    EXPECT_EQ(left.lines(), 0);
}

TEST(NullModem, BytesArriveAndTheHandleTellsOfThem) {
    End left("null-modem:bytes"), right("null-modem:bytes");
    EXPECT_FALSE(right.polls());
    EXPECT_EQ(left.writeNow("hello"), 5);
    EXPECT_TRUE(right.polls());
    EXPECT_EQ(right.wait(COM_HOST_WAIT_READ | COM_HOST_WAIT_WRITE, -1),
              COM_HOST_WAIT_READ | COM_HOST_WAIT_WRITE);
    EXPECT_EQ(right.read(2), "he");
    EXPECT_TRUE(right.polls());
    EXPECT_EQ(right.read(), "llo");
    EXPECT_FALSE(right.polls());
    EXPECT_EQ(right.wait(COM_HOST_WAIT_READ, 0), 0);

    left.change([](ComHostLineState& s) { s.dataBits = 7; });
    right.change([](ComHostLineState& s) { s.dataBits = 7, s.flags |= COM_HOST_LINE_NULL_STRIP; });
    left.writeNow(std::string("\xC1\x00\x80Z", 4));
    EXPECT_EQ(right.read(), "AZ") << "seven bits, and no zeros";
    right.flags(COM_HOST_LINE_DSR_SENSITIVITY);
    left.line(COM_HOST_LINE_CLEAR_DTR);
    left.writeNow("ignored");
    left.line(COM_HOST_LINE_SET_DTR);
    left.writeNow("seen");
    EXPECT_EQ(right.read(), "seen");
}

TEST(NullModem, RejoinedEndStartsAfreshAndTheOtherGoesOn) {
    End left("null-modem:rejoin");
    auto right = std::make_unique<End>("null-modem:rejoin");
    right->writeNow("kept");
    left.writeNow("lost");
    right = nullptr;
    EXPECT_EQ(left.write("nowhere"), 7) << "an open plug takes bytes";
    right = std::make_unique<End>("null-modem:rejoin");
    EXPECT_EQ(right->read(), "");
    EXPECT_EQ(left.read(), "kept");
    EXPECT_EQ(left.lines(), allLines);

    left.flags(COM_HOST_LINE_XON_OUTPUT);
    right->flags(COM_HOST_LINE_XON_INPUT);
    EXPECT_EQ(left.writeNow(std::string(3073 + 927, 'x')), 4000); // the queue of 4096 says XOFF at 3073
    Writing held = writing(left, "held");
    EXPECT_TRUE(eventually([&] { return right->inQueue() > 3072 && left.outQueue() > 927; }));
    right = nullptr;
    EXPECT_EQ(held.get().first, 4) << "a closing peer lets go whom its XOFF has stopped";
}

TEST(NullModem, EveryHandshakeHoldsTheSenderUntilThePeerHasRead) {
    const std::pair<uint32_t, uint32_t> modes[] = {
        {COM_HOST_LINE_CTS_OUTPUT, COM_HOST_LINE_RTS_HANDSHAKE | COM_HOST_LINE_DTR_ON},
        {COM_HOST_LINE_DSR_OUTPUT, COM_HOST_LINE_DTR_HANDSHAKE | COM_HOST_LINE_RTS_ON},
        {COM_HOST_LINE_XON_OUTPUT, COM_HOST_LINE_XON_INPUT}};
    const std::string text(10000, 'x');
    for (const auto& [sending, receiving] : modes) {
        SCOPED_TRACE(sending);
        End sender("null-modem:flow"), receiver("null-modem:flow");
        sender.flags(sending);
        receiver.flags(receiving, COM_HOST_LINE_RTS_ON | COM_HOST_LINE_DTR_ON);
        receiver.change([](ComHostLineState& s) { s.xoffLimit = 1096, s.xonLimit = 1000; });
        Writing all = writing(sender, text);
        EXPECT_TRUE(eventually([&] { return receiver.inQueue() > 0; }));
        EXPECT_NEAR(receiver.inQueue(), 3001, 1) << "one more may be on its way when an XOFF leaves";
        EXPECT_EQ(sender.wait(COM_HOST_WAIT_WRITE, 0), 0);

        std::string got = receiver.read(2001);
        EXPECT_NEAR(receiver.inQueue(), 1000.5, 0.5) << "not below the lower limit, so still held";
        EXPECT_FALSE(done(all));
        while (got.size() < text.size() && receiver.wait(COM_HOST_WAIT_READ, 5000) != 0)
            got += receiver.read(700);
        EXPECT_EQ(all.get(), std::pair(10000, 0));
        EXPECT_TRUE(got == text);
        EXPECT_EQ(receiver.errors(), 0u);
        EXPECT_EQ(sender.read(), "") << "XON and XOFF are not data";
    }
}

TEST(NullModem, ACompleteWriteThatEndsEarlyTakesItsRestBack) {
    End sender("null-modem:back"), receiver("null-modem:back");
    sender.flags(COM_HOST_LINE_CTS_OUTPUT);
    receiver.line(COM_HOST_LINE_CLEAR_RTS);
    sender.writeTime(30);
    sender.writeNow("before ");
    int32_t error = 1;
    EXPECT_EQ(sender.write("late", COM_HOST_WRITE_COMPLETE, error), 0);
    EXPECT_EQ(error, static_cast<int32_t>(std::errc::timed_out));
    EXPECT_FALSE(sender.flush()) << "what was written before is still held";

    sender.writeTime(UINT32_MAX);
    Writing aborted = writing(sender, "aborted");
    EXPECT_TRUE(eventually([&] { return sender.outQueue() == 14; }));
    EXPECT_EQ(sender.writeNow("between"), 0) << "nothing gets behind a write that may be taken back";
    sender.purge(COM_HOST_PURGE_TX_ABORT);
    EXPECT_EQ(aborted.get(), std::pair(0, canceled));
    receiver.line(COM_HOST_LINE_SET_RTS);
    EXPECT_TRUE(sender.flush());
    EXPECT_EQ(receiver.read(), "before ");
}

TEST(NullModem, CancelEndsWritesAndLeavesWaitsAlone) {
    End sender("null-modem:cancel"), receiver("null-modem:cancel");
    sender.flags(COM_HOST_LINE_DSR_OUTPUT);
    receiver.line(COM_HOST_LINE_CLEAR_DTR);
    sender.cancel(true);
    EXPECT_EQ(sender.write("more"), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.wait(COM_HOST_WAIT_READ, 40), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));

    sender.cancel(false);
    Writing held = writing(sender, "held");
    rest(20);
    EXPECT_FALSE(done(held));
    sender.cancel(true);
    sender.cancel(false);
    EXPECT_EQ(held.get(), std::pair(0, canceled))
        << "also when the cancelling is over before the thread sees it";
    receiver.line(COM_HOST_LINE_SET_DTR);
    EXPECT_EQ(receiver.read(), "");
}

TEST(NullModem, AWaitEndsByBytesByItsWakeOrByTime) {
    End left("null-modem:wake?paced"), right("null-modem:wake");
    EXPECT_EQ(left.wait(COM_HOST_WAIT_READ, 10), 0);
    Signal wake;
    const auto waitTwice = [&](int32_t descriptor) {
        const auto wait = [&left, descriptor] { return left.wait(COM_HOST_WAIT_READ, -1, descriptor); };
        return std::pair{std::async(std::launch::async, wait), std::async(std::launch::async, wait)};
    };
    auto woken = waitTwice(wake.descriptor());
    rest(10);
    wake.set();
    EXPECT_EQ(woken.first.get() + woken.second.get(), 0);
    auto reading = waitTwice(-1);
    rest(10);
    right.writeNow("x"); // paced, so it is not there yet: the sleepers must learn when it will be
    EXPECT_EQ(reading.first.get() & reading.second.get(), COM_HOST_WAIT_READ);
}

TEST(NullModem, MismatchedSettingsArriveAsErrors) {
    End sender("null-modem:mismatch"), receiver("null-modem:mismatch");
    const auto received = [&](uint32_t expected) {
        sender.writeNow("A");
        EXPECT_EQ(receiver.errors(), expected);
        return receiver.read();
    };
    receiver.change([](ComHostLineState& s) { s.baudRate = 4800; });
    EXPECT_EQ(received(COM_HOST_ERROR_FRAMING), "\xBE");
    receiver.change([](ComHostLineState& s) { s.baudRate = 9600, s.dataBits = 7; });
    EXPECT_EQ(received(COM_HOST_ERROR_FRAMING), "\x3E");
    receiver.change([](ComHostLineState& s) {
        s.dataBits = 8, s.parity = COM_HOST_PARITY_EVEN, s.flags |= COM_HOST_LINE_ERROR_REPLACE;
    });
    EXPECT_EQ(received(COM_HOST_ERROR_PARITY), "A") << "not replaced where nobody checks";
    sender.change([](ComHostLineState& s) { s.parity = COM_HOST_PARITY_EVEN; });
    EXPECT_EQ(received(0), "A");
}

TEST(NullModem, ABreakIsToldOnceAndSwallowsBytes) {
    End left("null-modem:break");
    left.line(COM_HOST_LINE_SET_BREAK);
    End right("null-modem:break");
    EXPECT_EQ(right.errors(), uint32_t{COM_HOST_ERROR_BREAK}) << "a break is on when the peer comes";
    left.line(COM_HOST_LINE_SET_BREAK);
    left.writeNow("gone");
    EXPECT_EQ(right.errors(), 0u);
    left.line(COM_HOST_LINE_CLEAR_BREAK);
    left.writeNow("there");
    EXPECT_EQ(right.read(), "there");
    left.line(COM_HOST_LINE_SET_BREAK);
    EXPECT_EQ(right.status(COM_HOST_WANT_IN).errors, 0u);
    EXPECT_EQ(right.errors(), uint32_t{COM_HOST_ERROR_BREAK}) << "errors nobody asked for stay";
}

TEST(NullModem, QueuesHoldWhatTheyShallAndAFullInputLosesTheNewest) {
    End sender("null-modem:overflow"), receiver("null-modem:overflow");
    sender.setQueues(0, 2000);
    sender.flags(COM_HOST_LINE_XON_OUTPUT);
    receiver.writeNow("a\x13");
    EXPECT_EQ(sender.read(), "a");
    EXPECT_EQ(sender.writeNow(std::string(3000, 'b')), 2000) << "what fits";
    EXPECT_EQ(sender.wait(COM_HOST_WAIT_WRITE, 0), 0);
    sender.line(COM_HOST_LINE_RESUME);
    EXPECT_EQ(receiver.read().size(), 2000u);

    receiver.setQueues(5000, 0);
    EXPECT_EQ(sender.write(std::string(5000, 'x')), 5000);
    EXPECT_EQ(receiver.errors(), 0u);
    EXPECT_EQ(sender.writeNow("y"), 1);
    EXPECT_EQ(receiver.errors(), uint32_t{COM_HOST_ERROR_RX_OVERFLOW});
    EXPECT_EQ(receiver.read(), std::string(5000, 'x'));
}

TEST(NullModemAlone, APacedCableTakesTheTimeOfTheLine) {
    clock::setTestScale(20);
    End sender("null-modem:paced"), receiver("null-modem:paced?paced");
    for (const End* end : {&sender, &receiver})
        end->change(
            [](ComHostLineState& s) { s.baudRate = 1200, s.dataBits = 7, s.stopBits = COM_HOST_STOP_2; });
    // 240 characters of 10 bits: two seconds.
    const uint32_t start = clock::ticks();
    EXPECT_EQ(sender.writeNow(std::string(240, 'x')), 240);
    EXPECT_GT(sender.outQueue(), 0u);
    EXPECT_EQ(receiver.wait(COM_HOST_WAIT_READ, -1), COM_HOST_WAIT_READ);
    EXPECT_LT(receiver.read().size(), 240u) << "the first is there long before the last";
    EXPECT_TRUE(sender.flush());
    const uint32_t took = clock::ticks() - start;
    EXPECT_GE(took, 1990u);
    EXPECT_LT(took, 30000u);

    // The write time-out cuts the rest off, and what has left has arrived.
    receiver.read();
    sender.writeTime(1000);
    const int32_t gone = sender.write(std::string(2400, 'y'));
    EXPECT_GE(gone, 110);
    EXPECT_LT(gone, 2400);
    EXPECT_TRUE(sender.flush());
    EXPECT_EQ(receiver.read(), std::string(static_cast<size_t>(gone), 'y'));
    clock::setTestScale(1);
}

TEST(NullModem, FlowCharactersOfAPacedCableTakeTheirTime) {
    End sender("null-modem:pacedflow?paced"), receiver("null-modem:pacedflow");
    for (const End* end : {&sender, &receiver})
        end->change([](ComHostLineState& s) {
            s.baudRate = 1000000, s.flags |= COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT;
        });
    Writing all = writing(sender, std::string(9000, 'x'));
    EXPECT_TRUE(eventually([&] { return receiver.inQueue() > 3072; }));
    rest(5);
    EXPECT_LE(receiver.inQueue(), 3076u) << "an XOFF takes a character's time as well";
    // The first read empties the queue, and only the XON that leaves then brings the next byte.
    size_t got = 0;
    while (got < 9000 && receiver.wait(COM_HOST_WAIT_READ, 5000) != 0)
        got += receiver.read().size();
    EXPECT_EQ(got, 9000u);
    EXPECT_EQ(all.get().first, 9000);
}

TEST(NullModem, TwoThreadsEachWayLoseNothing) {
    End ends[2] = {End("null-modem:hammer"), End("null-modem:hammer")};
    constexpr uint32_t total = 200000;
    const auto value = [](uint32_t i) { return static_cast<char>((i * 2654435761u) >> 24); };
    for (const End& end : ends)
        end.flags(COM_HOST_LINE_CTS_OUTPUT | COM_HOST_LINE_RTS_HANDSHAKE, COM_HOST_LINE_RTS_ON);

    const auto send = [&](const End& end) {
        for (uint32_t at = 0; at < total;) {
            std::string part;
            for (uint32_t i = 0; i < 1 + at % 777 && at + i < total; ++i)
                part += value(at + i);
            const uint32_t how = at % 3 == 0 ? COM_HOST_WRITE_NOW : COM_HOST_WRITE_COMPLETE;
            const int32_t taken = end.write(part, how);
            at += static_cast<uint32_t>(taken);
            if (taken == 0)
                end.wait(COM_HOST_WAIT_WRITE, -1);
        }
    };
    const auto receive = [&](const End& end) {
        for (uint32_t at = 0; at < total;) {
            ASSERT_NE(end.wait(COM_HOST_WAIT_READ, 20000), 0) << at;
            for (const char byte : end.read(500))
                ASSERT_EQ(byte, value(at++));
        }
        EXPECT_EQ(end.errors(), 0u);
    };
    std::thread threads[4] = {std::thread([&] { send(ends[0]); }), std::thread([&] { send(ends[1]); }),
                              std::thread([&] { receive(ends[0]); }), std::thread([&] { receive(ends[1]); })};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(ends[0].outQueue() + ends[1].outQueue(), 0u);
}
