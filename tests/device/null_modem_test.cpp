// The null modem as the port engine calls it.
#include <cerrno>
#include <memory>

#include "platform/error_text.h"
#include "platform/memory.h"
#include "platform/signal.h"
#include "support/limit.h"
#include "support/pattern.h"
#include "support/test_device.h"
#include "support/timing.h"

using namespace brisolt;
using namespace brisolt::test;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t allLines = COM_HOST_MODEM_CTS | COM_HOST_MODEM_DSR | COM_HOST_MODEM_CARRIER;

/// An open end. What holds a test's write is to end it.
struct End : TestDevice {
    explicit End(const std::string& path) : TestDevice(path) {
        if (opened > 0)
            writeLimit(UINT32_MAX);
    }
    bool polls() const {
        Watch watch{.descriptor = handle(), .forRead = true};
        return waitAny({&watch, 1}, 0) > 0;
    }
};

/// Nothing in it is an XON or XOFF.
std::string numbers(size_t size) {
    std::string text = pattern(size);
    for (char& byte : text)
        byte = static_cast<char>(byte | 0x40);
    return text;
}

} // namespace

TEST(NullModem, RefusesPathsAndAThirdOpenAndForgetsClosedCables) {
    for (const char* path :
         {"null-modem:", "null-modem:?paced", "null-modem:x?fast", "loop:", "loop:x?autobaud"})
        EXPECT_EQ(End(path).opened, -EINVAL) << path;

    End first("null-modem:busy"), second("NULL-MODEM:busy?paced"), third("null-modem:busy");
    EXPECT_EQ(third.opened, -EBUSY);
    EXPECT_EQ(errorText(), "null-modem:busy: both ends are open");
    End otherName("null-modem:Busy");
    EXPECT_EQ(otherName.opened, 1);
    EXPECT_EQ(otherName.lines(), 0u) << "names that differ in case are two cables";

    first.close();
    second.close();
    EXPECT_FALSE(drivers::ringNullModem("null-modem:busy", true)) << "the cable is gone";
}

TEST(NullModem, AnOpenThatTheHostRefusesLeavesNoEndBehind) {
    for (int32_t granted = 0; granted < 2; ++granted) { // each of the two queues
        memory::failAllocations(granted, 1);
        EXPECT_EQ(End("null-modem:refused").opened, -ENOMEM);
    }
    memory::failAllocations(0, 0);
    {
        const NoDescriptors none;
        EXPECT_EQ(End("null-modem:refused").opened, -EMFILE);
    }
    EXPECT_EQ(errorText(), "null-modem:refused: the process has no descriptor left");
    EXPECT_FALSE(drivers::ringNullModem("null-modem:refused", true));
    End left("null-modem:refused"), right("null-modem:refused");
    EXPECT_EQ(right.opened, 1);
    EXPECT_EQ(left.lines(), allLines);
}

TEST(NullModem, LinesAreLowWithoutAPeer) {
    End left("null-modem:lines");
    EXPECT_TRUE(drivers::ringNullModem("null-modem:lines", true));
    EXPECT_EQ(left.lines(), 0u) << "nobody rings an end that is not connected";
    {
        End right("null-modem:lines");
        EXPECT_EQ(left.lines(), allLines | COM_HOST_MODEM_RING);
        EXPECT_EQ(right.lines(), allLines | COM_HOST_MODEM_RING);
        EXPECT_TRUE(drivers::ringNullModem("null-modem:lines?paced", false));
        left.line(COM_HOST_LINE_CLEAR_DTR);
        EXPECT_EQ(right.lines(), uint32_t{COM_HOST_MODEM_CTS});
        left.change([](ComHostLineState& s) { s.baudRate = 1200; });
        EXPECT_EQ(right.lines(), uint32_t{COM_HOST_MODEM_CTS}) << "a new rate does not raise DTR";
        left.flags(0, COM_HOST_LINE_DTR_ON | COM_HOST_LINE_RTS_ON);
        EXPECT_EQ(right.lines(), 0u);
    }
    EXPECT_EQ(left.lines(), 0u);
}

TEST(NullModem, BytesArriveAndTheHandleTellsOfThem) {
    End left("null-modem:bytes"), right("null-modem:bytes");
    EXPECT_FALSE(right.polls());
    EXPECT_EQ(left.writeNow("hello"), 5);
    EXPECT_TRUE(right.polls());
    EXPECT_EQ(right.wait(readable | writable, -1), readable | writable);
    EXPECT_EQ(right.read(2), "he");
    EXPECT_TRUE(right.polls());
    EXPECT_EQ(right.read(), "llo");
    EXPECT_FALSE(right.polls());
    EXPECT_EQ(right.wait(readable, 0), 0u);

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
    EXPECT_EQ(left.write("nowhere").first, 7) << "an open plug takes bytes";
    right = std::make_unique<End>("null-modem:rejoin");
    EXPECT_EQ(right->read(), "");
    EXPECT_EQ(left.read(), "kept");
    EXPECT_EQ(left.lines(), allLines);

    left.flags(COM_HOST_LINE_XON_OUTPUT);
    right->flags(COM_HOST_LINE_XON_INPUT);
    EXPECT_EQ(left.writeNow(std::string(3073 + 927, 'x')), 4000); // the queue of 4096 says XOFF at 3073
    auto held = left.writeAside("held");
    EXPECT_TRUE(eventually([&] { return right->inQueue() > 3072 && left.outQueue() > 927; }));
    right = nullptr;
    EXPECT_EQ(held.get().first, 4) << "a closing peer lets go whom its XOFF has stopped";
}

TEST(NullModem, EveryHandshakeHoldsTheSenderUntilThePeerHasRead) {
    const std::pair<uint32_t, uint32_t> modes[] = {
        {COM_HOST_LINE_CTS_OUTPUT, COM_HOST_LINE_RTS_HANDSHAKE | COM_HOST_LINE_DTR_ON},
        {COM_HOST_LINE_DSR_OUTPUT, COM_HOST_LINE_DTR_HANDSHAKE | COM_HOST_LINE_RTS_ON},
        {COM_HOST_LINE_XON_OUTPUT, COM_HOST_LINE_XON_INPUT}};
    const std::string text = numbers(10000);
    for (size_t i = 0; i < 6; ++i) {
        const auto& [sending, receiving] = modes[i / 2];
        const bool paced = i % 2 != 0;
        SCOPED_TRACE(testing::Message() << "mode " << i / 2 << (paced ? ", paced" : ""));
        End sender("null-modem:flow"), receiver(paced ? "null-modem:flow?paced" : "null-modem:flow");
        sender.flags(sending);
        receiver.flags(receiving, COM_HOST_LINE_RTS_ON | COM_HOST_LINE_DTR_ON);
        for (const End* end : {&sender, &receiver})
            end->change(
                [](ComHostLineState& s) { s.baudRate = 1000000, s.xoffLimit = 1096, s.xonLimit = 1000; });
        auto all = sender.writeAside(text);
        EXPECT_TRUE(eventually([&] { return receiver.inQueue() > 3000; }));
        std::this_thread::sleep_for(5ms);
        EXPECT_LE(receiver.inQueue(), paced ? 3004u : 3002u) << "an XOFF takes its time, where a byte does";
        EXPECT_EQ(sender.wait(writable, 0), 0u);

        std::string got = receiver.read(receiver.inQueue() - 1000);
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(receiver.inQueue(), 1000u) << "not below the lower limit, so still held";
        EXPECT_FALSE(done(all));
        while (got.size() < text.size() && receiver.wait(readable, 5000) != 0)
            got += receiver.read(1200); // which empties the queue: only an XON then brings the next byte
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
    sender.writeLimit(30);
    sender.writeNow("before ");
    EXPECT_EQ(sender.write("late"), std::pair(0, ETIMEDOUT));
    EXPECT_FALSE(sender.flush()) << "what was written before is still held";

    sender.writeLimit(UINT32_MAX);
    auto aborted = sender.writeAside("aborted");
    EXPECT_TRUE(eventually([&] { return sender.outQueue() == 14; }));
    EXPECT_EQ(sender.writeNow("between"), 0) << "nothing gets behind a write that may be taken back";
    sender.purge(COM_HOST_PURGE_TX_ABORT);
    EXPECT_EQ(aborted.get(), std::pair(0, ECANCELED));
    receiver.line(COM_HOST_LINE_SET_RTS);
    EXPECT_TRUE(sender.flush());
    EXPECT_EQ(receiver.read(), "before ");
}

TEST(NullModem, ACancelEndsWhatWaitsAndLetsNoWriteWaitAgain) {
    End sender("null-modem:cancel"), receiver("null-modem:cancel");
    const Signal wake;
    sender.flags(COM_HOST_LINE_DSR_OUTPUT);
    receiver.line(COM_HOST_LINE_CLEAR_DTR);
    auto reading =
        std::async(std::launch::async, [&] { return sender.wait(readable, -1, wake.descriptor()); });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(done(reading));
    const auto ended = [&] { return sender.cancel(true), done(reading); };
    EXPECT_TRUE(eventually(ended)) << "also when its wake-up was lost";
    EXPECT_EQ(sender.write("more"), std::pair(0, ECANCELED));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.wait(readable, 40), 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 40ms) << "a later wait waits";

    sender.cancel(false);
    auto held = sender.writeAside("held");
    EXPECT_TRUE(eventually([&] { return sender.outQueue() == 4; }));
    sender.cancel(true);
    sender.cancel(false);
    EXPECT_EQ(held.get(), std::pair(0, ECANCELED)) << "also when it is over before the thread sees it";
    receiver.line(COM_HOST_LINE_SET_DTR);
    EXPECT_EQ(receiver.read(), "");
}

TEST(NullModem, AWaitEndsByBytesByItsWakeOrByTime) {
    End left("null-modem:wake?paced"), right("null-modem:wake");
    EXPECT_EQ(left.wait(readable, 10), 0u);
    Signal wake, never;
    for (const int32_t beside : {wake.descriptor(), -1, never.descriptor()}) {
        const bool wakes = beside == wake.descriptor();
        const auto wait = [&left, beside] { return left.wait(readable, -1, beside); };
        auto one = std::async(std::launch::async, wait), other = std::async(std::launch::async, wait);
        std::this_thread::sleep_for(10ms);
        if (wakes)
            wake.set();
        else
            right.writeNow("x"); // paced, so it is not there yet: the sleepers must learn when it will be
        EXPECT_EQ(one.get(), wakes ? 0 : readable);
        EXPECT_EQ(other.get(), wakes ? 0 : readable);
        EXPECT_EQ(left.read(), wakes ? "" : "x");
    }
}

TEST(NullModem, MismatchedSettingsAndBreaksArriveAsErrors) {
    End sender("null-modem:errors");
    sender.line(COM_HOST_LINE_SET_BREAK);
    End receiver("null-modem:errors");
    EXPECT_EQ(receiver.errors(), uint32_t{COM_HOST_ERROR_BREAK}) << "a break is on when the peer comes";
    sender.line(COM_HOST_LINE_SET_BREAK);
    sender.writeNow("gone");
    EXPECT_EQ(receiver.errors(), 0u) << "it is told once";
    sender.line(COM_HOST_LINE_CLEAR_BREAK);
    sender.writeNow("there");
    EXPECT_EQ(receiver.read(), "there");
    sender.line(COM_HOST_LINE_SET_BREAK);
    sender.line(COM_HOST_LINE_CLEAR_BREAK);
    EXPECT_EQ(receiver.status(COM_HOST_WANT_IN).errors, 0u);
    EXPECT_EQ(receiver.errors(), uint32_t{COM_HOST_ERROR_BREAK}) << "errors nobody asked for stay";

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

TEST(NullModem, QueuesHoldWhatTheyShallAndAFullInputLosesTheNewest) {
    End sender("null-modem:overflow"), receiver("null-modem:overflow");
    sender.setQueues(0, 2000);
    sender.flags(COM_HOST_LINE_XON_OUTPUT);
    receiver.writeNow("a\x13");
    EXPECT_EQ(sender.read(), "a");
    EXPECT_EQ(sender.writeNow(std::string(3000, 'b')), 2000) << "what fits";
    EXPECT_EQ(sender.wait(writable, 0), 0u);
    memory::failAllocations(1, 1);
    EXPECT_FALSE(sender.setQueues(5000, 3000));
    EXPECT_EQ(sender.writeNow("c"), 0) << "a queue that is not to be had changes nothing";
    sender.line(COM_HOST_LINE_RESUME);
    EXPECT_EQ(receiver.read().size(), 2000u);

    EXPECT_EQ(sender.writeNow("first"), 5);
    EXPECT_TRUE(receiver.setQueues(5000, 0));
    EXPECT_EQ(sender.write(std::string(4995, 'x')).first, 4995);
    EXPECT_EQ(receiver.errors(), 0u);
    EXPECT_EQ(sender.writeNow("y"), 1);
    EXPECT_EQ(receiver.errors(), uint32_t{COM_HOST_ERROR_RX_OVERFLOW});
    EXPECT_EQ(receiver.read(), "first" + std::string(4995, 'x')) << "a larger queue keeps what it held";
}

TEST(NullModemAlone, APacedCableTakesTheTimeOfTheLine) {
    const FastClock fast(20);
    End sender("null-modem:paced"), receiver("null-modem:paced?paced");
    for (const End* end : {&sender, &receiver})
        end->change(
            [](ComHostLineState& s) { s.baudRate = 1200, s.dataBits = 7, s.stopBits = COM_HOST_STOP_2; });
    // 240 characters of 10 bits: two seconds.
    const uint32_t start = clock::ticks();
    EXPECT_EQ(sender.writeNow(std::string(240, 'x')), 240);
    EXPECT_GT(sender.outQueue(), 0u);
    EXPECT_EQ(receiver.wait(readable, -1), readable);
    EXPECT_LT(receiver.read().size(), 240u) << "the first is there long before the last";
    EXPECT_TRUE(sender.flush());
    const uint32_t took = clock::ticks() - start;
    EXPECT_GE(took, 1990u);
    EXPECT_LT(took, 30000u);

    // The write time-out cuts the rest off, and what has left has arrived.
    receiver.read();
    sender.writeLimit(1000);
    const int32_t gone = sender.write(std::string(2400, 'y')).first;
    EXPECT_GE(gone, 110);
    EXPECT_LT(gone, 2400);
    EXPECT_TRUE(sender.flush());
    EXPECT_EQ(receiver.read(), std::string(static_cast<size_t>(gone), 'y'));
}

TEST(NullModem, TwoThreadsEachWayLoseNothing) {
    End ends[2] = {End("null-modem:hammer"), End("null-modem:hammer")};
    const std::string text = numbers(200000);
    for (const End& end : ends)
        end.flags(COM_HOST_LINE_CTS_OUTPUT | COM_HOST_LINE_RTS_HANDSHAKE, COM_HOST_LINE_RTS_ON);

    const auto send = [&](const End& end) {
        for (size_t at = 0; at < text.size();) {
            const uint32_t how = at % 3 == 0 ? COM_HOST_WRITE_NOW : COM_HOST_WRITE_COMPLETE;
            const int32_t taken = end.write(text.substr(at, 1 + at % 777), how).first;
            at += static_cast<size_t>(taken);
            if (taken == 0)
                end.wait(writable, -1);
        }
    };
    const Signal never;
    const auto receive = [&](const End& end, int32_t beside) {
        std::string got;
        while (got.size() < text.size() && end.wait(readable, 20000, beside) != 0)
            got += end.read(500);
        EXPECT_TRUE(got == text);
        EXPECT_EQ(end.errors(), 0u);
    };
    auto there = std::async(std::launch::async, [&] { send(ends[0]); });
    auto back = std::async(std::launch::async, [&] { send(ends[1]); });
    auto heard = std::async(std::launch::async, [&] { receive(ends[0], -1); });
    receive(ends[1], never.descriptor());
    heard.get();
    EXPECT_EQ(ends[0].outQueue() + ends[1].outQueue(), 0u);
}

TEST(Loop, IsAPortThatHearsItself) {
    End loop("loop:echo"), sameName("null-modem:echo");
    EXPECT_EQ(sameName.opened, 1);
    EXPECT_EQ(End("LOOP:echo").opened, -EBUSY);
    EXPECT_EQ(errorText(), "loop:echo: it is open already");
    EXPECT_EQ(ComHostRing("loop:echo", 1), 1);
    EXPECT_EQ(loop.lines(), allLines | COM_HOST_MODEM_RING);
    loop.line(COM_HOST_LINE_SET_BREAK);
    loop.line(COM_HOST_LINE_CLEAR_BREAK);
    EXPECT_EQ(loop.errors(), uint32_t{COM_HOST_ERROR_BREAK});

    const std::string text = numbers(5000);
    EXPECT_EQ(loop.writeNow(text), 5000);
    EXPECT_EQ(loop.errors(), uint32_t{COM_HOST_ERROR_RX_OVERFLOW});
    EXPECT_EQ(loop.read(), text.substr(0, 4096)) << "what finds the queue full is dropped";
    for (const uint32_t mode : {COM_HOST_LINE_CTS_OUTPUT | COM_HOST_LINE_RTS_HANDSHAKE,
                                COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT}) {
        loop.flags(mode, 0x7FFF & ~mode);
        auto writing = loop.writeAside(text);
        std::string got;
        while (got.size() < text.size() && loop.wait(readable, 20000) != 0)
            got += loop.read(700);
        EXPECT_EQ(writing.get().first, 5000);
        EXPECT_TRUE(got == text);
    }
    loop.close();
    EXPECT_EQ(End("loop:echo").read(), "") << "nothing is left of an earlier one";
}
