// Calls between two modems of one program, or with one of which every byte is known.
#include <random>

#include "brisolt.h"
#include "support/pattern.h"
#include "telephony_program.h"

using namespace brisolt::test;
using simulated::Fate;
using simulated::Phase;
using Story = std::vector<uintptr_t>;

// As wide as it can be.
constexpr uintptr_t ownWord = UINTPTR_MAX - 0x1234567;

struct Calls : TwoModems {
    uint32_t otherLine = 0, incoming = 0;
    int hereEnd = -1, thereEnd = -1;
    Story rings;
    uintptr_t answerAt = 1;

    /// The other line answers at that ring.
    Calls() {
        EXPECT_EQ(openLine(0, line, privilege::none, ownWord), 0);
        EXPECT_EQ(openLine(1, otherLine, privilege::owner), 0);
        reaction = [this](const Message& one) {
            if (one.isCallState() && one.p1 == state::offering)
                incoming = one.device;
            if (one.message != service_::message::lineDeviceState || one.device != otherLine)
                return;
            rings.push_back(one.p3);
            if (one.p3 == answerAt)
                service.answer(incoming, nullptr, 0);
        };
    }
    void connect() {
        outgoing = call("T200");
        ASSERT_EQ(untilState(outgoing, state::connected), 0);
        ASSERT_EQ(untilState(incoming, state::connected), 0);
        hereEnd = commHandle(outgoing);
        thereEnd = commHandle(incoming);
    }
    void drop(const uint32_t& call) const {
        EXPECT_GT(service.drop(call, nullptr, 0), 0);
        untilState(call, state::idle);
    }
    /// As a program does that is done with a call: at once, one step behind the other.
    void leave(uint32_t call) {
        EXPECT_GT(service.drop(call, nullptr, 0), 0);
        EXPECT_EQ(service.deallocate(call), 0);
        EXPECT_EQ(service.close(line), 0);
        EXPECT_EQ(openLine(0, line), 0) << "as soon as the modem is at rest";
        EXPECT_EQ(here->status().phase, Phase::idle);
    }
    /// Dials a number that comes to nothing: why.
    int64_t failure(const char* number) {
        outgoing = call(number);
        const int64_t why = untilState(outgoing, state::disconnected);
        EXPECT_EQ(stateOf(outgoing), state::disconnected);
        drop(outgoing);
        EXPECT_EQ(service.deallocate(outgoing), 0);
        EXPECT_EQ(stateOf(outgoing), 0U) << "the handle has gone";
        return why;
    }
};

TEST_F(Calls, PlacedAnsweredAndEndedHere) {
    answerAt = 2;
    connect();
    EXPECT_EQ(rings, (Story{1, 2}));
    EXPECT_EQ(story(outgoing), (Story{state::dialling, state::proceeding, state::connected}));
    EXPECT_EQ(story(incoming), (Story{state::offering, state::connected}));
    EXPECT_TRUE(std::ranges::any_of(received, [&](const Message& one) {
        return one.message == service_::message::reply && one.device == outgoing && one.instance == ownWord &&
               one.p2 == 0;
    })) << "no reply to the request";
    EXPECT_EQ(here->commands().back(), "ATDT200");

    const std::string text = pattern(300000);
    std::thread sender([&] { writeTo(hereEnd, text); });
    EXPECT_EQ(readFrom(thereEnd, text.size()), text);
    sender.join();
    writeTo(thereEnd, "and back\r\n");
    EXPECT_EQ(readFrom(hereEnd, 10), "and back\r\n");

    uint32_t second = 0;
    EXPECT_EQ(service.makeCall(line, &second, "200", 0, nullptr), result::callUnavailable);
    EXPECT_EQ(service.deallocate(outgoing), result::wrongCallState);
    writeTo(hereEnd, "bye");
    leave(outgoing);
    EXPECT_EQ(untilState(incoming, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(thereEnd, 100, Milliseconds(500)).substr(0, 3), "bye") << "sent before the end";
    EXPECT_EQ(failure("T999"), cause::noAnswer) << "the line can be used again";
}

TEST_F(Calls, EndedByTheOtherSideAndByAShutdown) {
    connect();
    const std::string text = "first\r\nNO CARRIER\r\nno, still here\r\n";
    writeTo(thereEnd, text);
    EXPECT_EQ(readFrom(hereEnd, text.size()), text) << "the other end may say such words";
    writeTo(thereEnd, "last words\r\n\r\nno carrier  \r\n");
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal) << "and falls silent";
    EXPECT_EQ(readFrom(hereEnd, 100, Milliseconds(500)), "last words\r\n") << "can still be read";
    leave(outgoing);
    EXPECT_EQ(untilState(incoming, state::disconnected), cause::normal) << "what was said is made true";
    drop(incoming);

    connect();
    std::thread([&] { EXPECT_EQ(service.shutdown(application), 0); }).join(); // although nobody pumps
    EXPECT_TRUE(here->waitFor(Phase::idle));
    EXPECT_TRUE(there->waitFor(Phase::idle));
    received.clear();
    EXPECT_FALSE(until([] { return !received.empty(); }, Milliseconds(500))) << "no message comes late";
}

TEST_F(TelephonyProgram, BytesRightBehindConnectReachTheOpenPort) {
    const std::string greeting = "\r\n\nlogin: \r\nNO C", text = pattern(16000);
    PlainModem modem("\r\nCarrier 14400\r\n\r\nRinging \r\n\r\nConnect 14400/V42 \r\n" + greeting,
                     "\r\nok \r\n");
    callOver(modem);
    EXPECT_EQ(story(outgoing), (Story{state::dialling, state::proceeding, state::proceeding, state::ringBack,
                                      state::connected}));
    std::thread speaker([&] { modem.line.write(text, Milliseconds(30000)); });
    const auto begun = Clock::now();
    EXPECT_EQ(ComTAPI_OPENPORT(130, commHandle(outgoing)), 130);
    service.portOpen(outgoing);
    std::string heard(greeting.size() + text.size(), 0);
    const auto wanted = static_cast<int32_t>(heard.size());
    EXPECT_EQ(ComReadTimed(130, heard.data(), 1, 3000), 1);
    EXPECT_LT(Clock::now() - begun, Milliseconds(1500)) << "who says that it is there is not waited for";
    EXPECT_EQ(ComReadTimed(130, heard.data() + 1, wanted - 1, 30000), wanted - 1);
    speaker.join();
    EXPECT_TRUE(heard == greeting + text);
    modem.unplug();
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
}

/// A program that reads the handle as it is does not wait for ever, and the end comes behind what was said.
TEST_F(TelephonyProgram, BytesRightBehindConnectReachAProgramWithoutAPort) {
    PlainModem modem("\r\nCONNECT\r\nsorry\r\nNO CARRIER\r\n");
    callOver(modem);
    modem.online = false;
    const int handle = commHandle(outgoing);
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(handle, 6, Milliseconds(500)), "sorry");
}

TEST_F(Calls, ModemLeftInACallIsTakenOutOfIt) {
    EXPECT_EQ(service.close(line), 0);
    const int other = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    writeTo(other, "ATD200\r");
    ASSERT_TRUE(until([&] { return here->status().phase == Phase::online; }));
    // It stays open beside us, so nothing but the escape ends the call.
    EXPECT_EQ(openLine(0, line), 0);
    EXPECT_EQ(here->status().phase, Phase::idle);
    close(other);
}

TEST_F(Calls, FailWithTheirCauseAndMayBeDroppedWhileTheyAreDialled) {
    exchange.set("1", Fate::busy);
    exchange.set("2", Fate::ringsForEver);
    exchange.set("3", Fate::noDialtone);
    EXPECT_EQ(failure("T1"), cause::busy);
    EXPECT_EQ(failure("P2"), cause::noAnswer);
    EXPECT_EQ(failure("T3"), cause::noDialTone);
    here->add({.mishap = simulated::Mishap::refusal, .text = "D", .times = 1});
    EXPECT_EQ(failure("T200"), cause::badAddress);
    EXPECT_EQ(failure("T2@"), cause::noAnswer);

    // Dropped while it is dialled.
    outgoing = call("T2");
    untilState(outgoing, state::proceeding);
    EXPECT_TRUE(here->waitFor(Phase::calling));
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    EXPECT_EQ(service.drop(outgoing, nullptr, 0), 0) << "is on its way";
    untilState(outgoing, state::idle);
    EXPECT_EQ(here->status().phase, Phase::idle);
    EXPECT_EQ(story(outgoing), (Story{state::dialling, state::proceeding, state::idle}));
    EXPECT_EQ(service.deallocate(outgoing), 0);

    received.clear();
    leave(call("T2")); // before it has begun
    EXPECT_FALSE(until([] { return !received.empty(); }, Milliseconds(500)))
        << "nothing is heard of it any more";
}

TEST_F(Calls, CallerGivesUpAndCallsAgain) {
    answerAt = 99;
    outgoing = call("T200");
    ASSERT_TRUE(until([&] { return !rings.empty(); }));
    const uint32_t first = incoming;
    drop(outgoing);
    EXPECT_EQ(untilState(first, state::disconnected), cause::normal) << "when it has not rung for a while";
    untilState(first, state::idle);
    EXPECT_LT(service.answer(first, nullptr, 0), 0);

    answerAt = 1;
    connect(); // although nobody has released the first call
    EXPECT_NE(incoming, first);
}

/// Many threads at one service: whatever they do to each other's lines and calls, all of it ends.
struct Races : TwoModems {
    std::atomic<uint32_t> lines[2] = {}, calls[2] = {};
    std::atomic<bool> over = false;

    void disturb(unsigned seed) {
        for (std::minstd_rand random(seed); !over;) {
            const unsigned which = static_cast<unsigned>(random() >> 4) % 2;
            uint32_t handle = 0;
            switch ((random() >> 4) % 8) {
            case 0:
                if (openLine(which, handle, privilege::owner) == 0)
                    lines[which] = handle;
                break;
            case 1:
                if (service.makeCall(lines[which], &handle, "T200", 0, nullptr) > 0)
                    calls[which] = handle;
                break;
            case 2: service.drop(calls[which], nullptr, 0); break;
            case 3: service.deallocate(calls[which]); break;
            case 4: service.close(random() % 4 == 0 ? lines[which].load() : 0); break;
            case 5: stateOf(calls[which]); break;
            default: until([first = true]() mutable { return !std::exchange(first, false); });
            }
        }
    }
};

TEST_F(Races, ThreadsThatDoEverythingAtOnce) {
    reaction = [this](const Message& one) { // by any thread, one at a time
        if (one.isCallState() && one.p1 == state::offering)
            service.answer(one.device, nullptr, 0);
        stateOf(one.device);
    };
    std::vector<std::jthread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back([this, seed] { disturb(seed); });
    std::this_thread::sleep_for(Milliseconds(4000));
    EXPECT_EQ(service.shutdown(application), 0);
    over = true;
    threads.clear();
    EXPECT_EQ(service.close(lines[0]), result::badLine);

    EXPECT_EQ(start(), 0) << "and it can be used again";
    EXPECT_EQ(openLine(0, line), 0);
}
