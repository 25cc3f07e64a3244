// Calls between two modems of one program.
#include "telephony_program.h"

using namespace brisolt::test;
using simulated::Fate;
using simulated::Phase;
namespace service_ = brisolt::service;
namespace state = brisolt::service::callState;
namespace cause = brisolt::service::disconnectedBy;
namespace result = brisolt::service::result;

namespace {

struct Calls : TwoModems {
    uint32_t line = 0, otherLine = 0;
    uint32_t outgoing = 0, incoming = 0;
    int hereEnd = -1, thereEnd = -1;
    std::vector<uintptr_t> rings;
    uintptr_t answerAt = 1;

    void SetUp() override {
        TwoModems::SetUp();
        ASSERT_EQ(openLine(0, line, service_::privilege::none, 0x123456789), 0);
    }
    ~Calls() override {
        close(hereEnd);
        close(thereEnd);
    }
    /// Arms the other line: it answers at that ring.
    void arm() {
        ASSERT_EQ(openLine(1, otherLine, service_::privilege::owner), 0);
        reaction() = [this](const Message& one) {
            if (one.message == service_::message::callState && one.p1 == state::offering)
                incoming = one.device;
            if (one.message != service_::message::lineDeviceState || one.device != otherLine)
                return;
            rings.push_back(one.p3);
            if (one.p3 == answerAt) {
                EXPECT_GT(service.answer(incoming, nullptr, 0), 0);
            }
        };
    }
    void connect() {
        arm();
        outgoing = call(line, "T200");
        ASSERT_EQ(untilState(outgoing, state::connected), 0);
        ASSERT_EQ(untilState(incoming, state::connected), 0);
        hereEnd = commHandle(outgoing);
        thereEnd = commHandle(incoming);
    }
    /// All states that a call was told to be in.
    static std::vector<uintptr_t> story(uint32_t call) {
        std::vector<uintptr_t> states;
        for (const Message& one : received())
            if (one.device == call && one.message == service_::message::callState)
                states.push_back(one.p1);
        return states;
    }
    /// Dials a number that comes to nothing: why.
    int64_t failure(const char* number) {
        outgoing = call(line, number);
        const int64_t why = untilState(outgoing, state::disconnected);
        EXPECT_EQ(stateOf(outgoing), state::disconnected);
        EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
        untilState(outgoing, state::idle);
        EXPECT_EQ(service.deallocate(outgoing), 0);
        return why;
    }
};

std::string manyBytes(std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(i * 7 / 3);
    return bytes;
}

} // namespace

TEST_F(Calls, PlacedAnsweredAndEndedHere) {
    answerAt = 2;
    connect();
    EXPECT_EQ(rings, (std::vector<uintptr_t>{1, 2}));
    EXPECT_EQ(story(outgoing),
              (std::vector<uintptr_t>{state::dialling, state::proceeding, state::connected}));
    EXPECT_EQ(story(incoming), (std::vector<uintptr_t>{state::offering, state::connected}));
    EXPECT_EQ(find(outgoing, state::connected)->instance, 0x123456789U);
    const auto reply = std::find_if(received().begin(), received().end(), [&](const Message& one) {
        return one.message == service_::message::reply && one.device == outgoing;
    });
    ASSERT_NE(reply, received().end());
    EXPECT_EQ(reply->p2, 0U);
    EXPECT_EQ(here->commands().back(), "ATDT200");

    EXPECT_TRUE(isatty(hereEnd)) << "what a port can take over";
    const std::string text = manyBytes(300000);
    std::thread sender([&] { writeTo(hereEnd, text); });
    EXPECT_EQ(readFrom(thereEnd, text.size(), Milliseconds(30000)), text);
    sender.join();
    writeTo(thereEnd, "and back\r\n");
    EXPECT_EQ(readFrom(hereEnd, 10), "and back\r\n");

    uint32_t second = 0;
    EXPECT_EQ(service.makeCall(line, &second, "200", 0, nullptr), result::callUnavailable);
    EXPECT_EQ(service.deallocate(outgoing), result::wrongCallState);
    writeTo(hereEnd, "bye");
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    untilState(outgoing, state::idle);
    EXPECT_EQ(untilState(incoming, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(thereEnd, 100, Milliseconds(300)).substr(0, 3), "bye") << "sent before the end";
    EXPECT_EQ(here->status().phase, Phase::idle);

    close(hereEnd);
    EXPECT_EQ(service.deallocate(outgoing), 0);
    EXPECT_EQ(stateOf(outgoing), 0U) << "the handle has gone";
    EXPECT_EQ(service.deallocate(incoming), 0);
    hereEnd = -1;
    EXPECT_EQ(failure("T999"), cause::noAnswer) << "the line can be used again";
}

TEST_F(Calls, EndedByTheOtherSide) {
    connect();
    writeTo(thereEnd, "first\r\nNO CARRIER\r\nno, still here\r\n");
    const std::string text = "first\r\nNO CARRIER\r\nno, still here\r\n";
    EXPECT_EQ(readFrom(hereEnd, text.size()), text) << "the other end may say such words";
    writeTo(thereEnd, "last words\r\n");
    // As a program does that ends a call: at once, one call behind the other.
    EXPECT_GT(service.drop(incoming, nullptr, 0), 0);
    EXPECT_EQ(service.deallocate(incoming), 0);
    EXPECT_EQ(service.close(otherLine), 0);
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    const std::string rest = readFrom(hereEnd, 100, Milliseconds(300));
    EXPECT_EQ(rest.substr(0, 12), "last words\r\n") << "can still be read";
    EXPECT_EQ(rest.find("CARRIER"), std::string::npos) << rest;
    EXPECT_EQ(openLine(1, otherLine), 0) << "as soon as the modem is at rest";
    EXPECT_EQ(there->status().phase, Phase::idle);
}

TEST_F(Calls, LineCutByAStorm) {
    connect();
    there->dropNow();
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    EXPECT_EQ(untilState(incoming, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(hereEnd, 100, Milliseconds(200)), "");
}

TEST_F(Calls, ModemUnpluggedInMidCall) {
    connect();
    here.reset();
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    EXPECT_EQ(untilState(incoming, state::disconnected), cause::normal);
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    untilState(outgoing, state::idle);
    EXPECT_EQ(service.close(line), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(openLine(0, line), result::componentMissing);
    testing::internal::GetCapturedStderr();
}

TEST_F(Calls, BytesRightBehindConnectArriveExactly) {
    std::string text;
    ASSERT_EQ(service.close(line), 0);
    here.reset(); // its place takes a modem of which every byte is known
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_TRUE(grantpt(master) == 0 && unlockpt(master) == 0);
    const std::string device = std::string("device = ") + ptsname(master);
    const auto length = static_cast<uint32_t>(device.size());
    ASSERT_EQ(service.setConfiguration(0, device.c_str(), length, service_::modemClass), 0);
    std::thread modem([&] {
        std::string seen;
        while (seen.find("ATDT200\r") == std::string::npos) {
            const std::string one = readFrom(master, 1);
            if (one.empty())
                break;
            seen += one;
            if (one == "\r" && seen.find("ATD") == std::string::npos)
                writeTo(master, "\r\nOK\r\n");
        }
        writeTo(master, "\r\nCARRIER 14400\r\n\r\nRINGING\r\n\r\nCONNECT 14400/V42\r\n\r\n\nlogin: \r\nNO C");
    });
    ASSERT_EQ(openLine(0, line), 0);
    outgoing = call(line, "T200");
    EXPECT_EQ(untilState(outgoing, state::connected), 0);
    modem.join();
    EXPECT_EQ(story(outgoing), (std::vector<uintptr_t>{state::dialling, state::proceeding, state::proceeding,
                                                       state::ringBack, state::connected}));
    hereEnd = commHandle(outgoing);
    EXPECT_EQ(readFrom(hereEnd, 100, Milliseconds(300)), "\r\n\nlogin: \r\nNO C");
    close(master);
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
}

TEST_F(Calls, CausesOfFailure) {
    exchange.set("1", Fate::busy);
    exchange.set("2", Fate::ringsForEver);
    exchange.set("3", Fate::noDialtone);
    EXPECT_EQ(failure("T1"), cause::busy);
    EXPECT_EQ(failure("P2"), cause::noAnswer);
    EXPECT_EQ(failure("T3"), cause::noDialTone);
    here->add({.mishap = simulated::Mishap::refusal, .text = "D", .times = 1});
    EXPECT_EQ(failure("T200"), cause::badAddress);
    EXPECT_EQ(failure("T2@"), cause::noAnswer);
}

TEST_F(Calls, DroppedWhileDialling) {
    exchange.set("2", Fate::ringsForEver);
    outgoing = call(line, "T2");
    untilState(outgoing, state::proceeding);
    EXPECT_TRUE(here->waitFor(Phase::calling));
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    EXPECT_EQ(service.drop(outgoing, nullptr, 0), 0) << "is on its way";
    untilState(outgoing, state::idle);
    EXPECT_EQ(here->status().phase, Phase::idle);
    EXPECT_EQ(find(outgoing, state::disconnected), nullptr);
    EXPECT_EQ(service.deallocate(outgoing), 0);

    // Dropped before it has begun, released and closed at once: nothing is heard of it any more.
    outgoing = call(line, "T2");
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    EXPECT_EQ(service.deallocate(outgoing), 0);
    EXPECT_EQ(service.close(line), 0);
    received().clear();
    EXPECT_EQ(openLine(0, line), 0);
    EXPECT_FALSE(until([] { return !received().empty(); }, Milliseconds(300)));
}

TEST_F(Calls, CallerGivesUpAndCallsAgain) {
    answerAt = 99;
    arm();
    outgoing = call(line, "T200");
    ASSERT_TRUE(until([&] { return !rings.empty(); }));
    const uint32_t first = incoming;
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    EXPECT_EQ(untilState(first, state::disconnected), cause::normal) << "when it has not rung for a while";
    untilState(first, state::idle);
    EXPECT_LT(service.answer(first, nullptr, 0), 0);

    // Nobody has released the first call; the second is offered all the same.
    answerAt = 1;
    until([&] { return find(outgoing, state::idle) != nullptr; });
    outgoing = call(line, "T200");
    EXPECT_EQ(untilState(outgoing, state::connected), 0);
    EXPECT_NE(incoming, first);
}

TEST_F(Calls, ShutdownEndsTheCallOfAnotherThread) {
    connect();
    std::thread closer([&] {
        EXPECT_EQ(service.shutdown(application), 0);
        application = 0;
    });
    closer.join(); // although nobody pumps
    EXPECT_TRUE(here->waitFor(Phase::idle));
    EXPECT_TRUE(there->waitFor(Phase::idle));
    received().clear();
    EXPECT_FALSE(until([] { return !received().empty(); }, Milliseconds(200))) << "no message comes late";
}
