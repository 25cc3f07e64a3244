// The C++ interface through null modems and loops, over the shared library.
#include <brisolt.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <future>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using brisolt::errc;
using brisolt::port;

/// Generous: the machine may stand still for a while.
constexpr auto patience = 20s;

/// The failure that a call throws.
template <class Call> std::system_error failureOf(Call call) {
    try {
        call();
    } catch (const std::system_error& error) {
        return error;
    }
    return std::system_error(std::error_code(), "no failure");
}

TEST(Port, BytesOfEveryKindArriveAsTheyAre) {
    port a("null-modem:kinds"), b("null-modem:kinds");
    const std::array<std::uint8_t, 4> all{0, 0x7F, 0x80, 0xFF};
    EXPECT_EQ(a.write(all), 4u);
    std::array<std::uint8_t, 4> back{};
    EXPECT_EQ(b.read_all(back, patience), 4u);
    EXPECT_EQ(back, all);

    EXPECT_EQ(b.write(std::string("a\0b", 3), patience), 3u);
    EXPECT_EQ(b.write("text"), 4u) << "a literal without its zero";
    std::vector<std::byte> room(7);
    EXPECT_EQ(a.read_all(room, patience), 7u);
    EXPECT_EQ(room[1], std::byte{0});
    EXPECT_EQ(room[6], std::byte{'t'});

    const struct { char full[4] = {'r', 'e', 's', 't'}, behind[4] = {'x', 'x', 'x'}; } text;
    EXPECT_EQ(b.write(text.full), 4u) << "an array without a zero";
    std::error_code error;
    ASSERT_TRUE(b.drain(patience));
    EXPECT_EQ(a.read(3, patience, error), "res");
    EXPECT_EQ(a.read(100, patience), "t") << "what is there, not more";
    EXPECT_EQ(a.read(100, 1ms), "") << "and a time that is over is no failure";
    EXPECT_EQ(a.read_all(room, 1ms), 0u);
}

TEST(Port, LinesAreReadOneByOne) {
    port a("null-modem:lines"), b("null-modem:lines");
    a.write("first\nsecond\n\nwithout end");
    ASSERT_TRUE(a.drain(patience));
    for (const char* const expected : {"first\n", "second\n", "\n"})
        EXPECT_EQ(b.read_until('\n', patience), expected);
    EXPECT_EQ(b.read_until('\n', patience, 3), "wit") << "no more than asked for";
    EXPECT_EQ(b.read_until('\n', patience, 4), "hout");
    EXPECT_EQ(b.read_until('\n', 100ms), " end") << "what has come when the time is over";
    EXPECT_EQ(b.read_until('\n', 0s), "");

    auto later = std::async(std::launch::async, [&a] {
        for (const char piece : std::string("drop by drop\xff")) {
            a.write(std::string(1, piece));
            std::this_thread::sleep_for(2ms);
        }
    });
    EXPECT_EQ(b.read_until('\xff', patience), "drop by drop\xff");
    later.get();
}

TEST(Port, ThrowsAwayWhatHasComeAndWhatHasNotLeft) {
    port a("null-modem:thrown"), b("null-modem:thrown");
    a.write("old");
    ASSERT_TRUE(a.drain(patience));
    b.discard_input();
    a.set_line(0, {}, brisolt::flow::rts_cts);
    b.set_rts(false);
    a.write("held off");
    a.discard_output();
    b.set_rts(true);
    a.write("new\n");
    EXPECT_EQ(b.read_until('\n', patience), "new\n");
}

TEST(Port, PollAndLinesNeverMissOneAnother) {
    const int device = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(grantpt(device) + unlockpt(device), 0);
    port a(ptsname(device));
    pollfd wait{a.descriptor(), POLLIN, 0};
    ASSERT_EQ(write(device, "one\ntwo\nrest", 12), 12);
    // Of what comes in one piece a call takes its line alone, and the rest is still told of.
    for (const char* const expected : {"one\n", "two\n"}) {
        ASSERT_EQ(poll(&wait, 1, 20000), 1);
        EXPECT_EQ(a.read_until('\n', patience), expected);
    }
    ASSERT_EQ(poll(&wait, 1, 20000), 1);
    EXPECT_EQ(a.read_until('t', patience), "rest");
    EXPECT_EQ(poll(&wait, 1, 0), 0);
    close(device);
}

TEST(Port, AFailureHasItsCodeAndItsWords) {
    const auto notThere = failureOf([] { port("/dev/not-there?dtr=off"); });
    EXPECT_EQ(notThere.code(), errc::not_opened);
    EXPECT_NE(std::string(notThere.what()).find("/dev/not-there"), std::string::npos) << notThere.what();
    EXPECT_EQ(failureOf([] { port("loop:wrong", 9600, "8X1"); }).code(), errc::bad_parity);
    EXPECT_EQ(failureOf([] { port("loop:wrong", 9600, "8N7"); }).code(), std::errc::invalid_argument);

    std::error_code error;
    port closed("/dev/not-there", 9600, "8N1", error);
    EXPECT_EQ(error, errc::not_opened);
    EXPECT_FALSE(closed);
    // What has been said of the open is not said again of what has nothing to do with it.
    const auto read = failureOf([&closed] { closed.read(1); });
    EXPECT_EQ(read.code(), std::errc::bad_file_descriptor);
    EXPECT_EQ(std::string(read.what()).find("not-there"), std::string::npos) << read.what();

    port open("loop:words");
    EXPECT_EQ(failureOf([&open] { open.set_line(-1); }).code(), errc::closed);
    EXPECT_EQ(failureOf([] { port().discard_input(); }).code(), errc::closed);
    EXPECT_EQ(failureOf([] { port().discard_output(); }).code(), errc::closed);
    EXPECT_EQ(failureOf([&open] { open.set_line(9600, "8N9"); }).code(), errc::bad_stop_bits);
    open.write("still", 1s, error);
    EXPECT_FALSE(error) << "a success clears the code of before";
}

TEST(Port, EveryOptionIsOneThatTheLibraryKnows) {
    brisolt::options all;
    EXPECT_EQ(all.with("loop:x"), "loop:x") << "the defaults are those of the path alone";
    all.dtr = all.rts = brisolt::at_open::leave;
    all.leave_lines_at_close = all.low_latency = all.marks = all.keep = all.rs485_echo = true;
    all.exclusive = all.restore = all.rs485_rts_high = false;
    all.rs485 = brisolt::rs485_mode::driver;
    all.rs485_before = 1ms;
    all.rs485_after = 2ms;
    all.rs485_termination = brisolt::resistor::on;
    all.keep_for = 90s;
    // Options are looked at before the device is.
    const auto refused = failureOf([&all] { port("/dev/not-there", all); });
    EXPECT_NE(std::string(refused.what()).find("No such file"), std::string::npos) << refused.what();
    all.more = "colour=red";
    const auto unknown = failureOf([&all] { port("/dev/not-there", all); });
    EXPECT_NE(std::string(unknown.what()).find("colour"), std::string::npos) << unknown.what();

    brisolt::options few;
    few.dtr = brisolt::at_open::off;
    few.more = "paced=yes";
    EXPECT_EQ(few.with("null-modem:x?autobaud=yes"), "null-modem:x?autobaud=yes&dtr=off&paced=yes");
    EXPECT_EQ(few.with("null-modem:x?"), "null-modem:x?dtr=off&paced=yes");
    few.baud_rate = 2400;
    few.framing = "7e2";
    few.flow = brisolt::flow::rts_cts;
    port set("null-modem:x", few);
    EXPECT_EQ(set.line().baudRate, 2400u);
    EXPECT_EQ(set.line().framing(), "7E2");
    EXPECT_TRUE(set.line().flags & COM_HOST_LINE_RTS_HANDSHAKE);
    EXPECT_FALSE(set.lines().dtr);
}

TEST(Port, IsOwnedByOneAndClosedByTheLast) {
    {
        port first("loop:owned");
        EXPECT_EQ(failureOf([] { port("loop:owned"); }).code(), errc::not_opened) << "it is open";
        port second(std::move(first));
        EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): because that is what is tested
        EXPECT_EQ(second.write("x"), 1u);
        port other("loop:other");
        other = std::move(second);
        EXPECT_NO_THROW(port("loop:other")) << "what an assignment replaces is closed";
        EXPECT_EQ(other.read(1, patience), "x");
    }
    port again("loop:owned");
    const auto number = again.release();
    EXPECT_EQ(ComOpenState(number), 1);
    EXPECT_TRUE(port::adopt(number).close());
    EXPECT_FALSE(again.close()) << "there is nothing to close";
}

TEST(Port, ACancelEndsOneWaitAndACloseAll) {
    port waiting("loop:waiting");
    const auto reads = [&waiting] {
        return failureOf([&waiting] { waiting.read(1, brisolt::forever); }).code();
    };
    // A cancel is for the wait that runs: it may not run yet.
    const auto cancel = [&waiting](const auto& wait) {
        while (wait.wait_for(10ms) != std::future_status::ready)
            waiting.cancel();
    };
    auto cancelled = std::async(std::launch::async, reads);
    cancel(cancelled);
    EXPECT_EQ(cancelled.get(), std::errc::operation_canceled);

    EXPECT_EQ(waiting.write("abc"), 3u);
    std::error_code beside;
    std::array<char, 9> room{};
    auto cut = std::async(std::launch::async, [&] { return waiting.read_all(room, patience, beside); });
    cancel(cut);
    EXPECT_EQ(cut.get(), 3u) << "what has come";
    EXPECT_EQ(beside, errc::cancelled) << "and why there is no more";

    auto closed = std::async(std::launch::async, reads);
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(waiting.close());
    EXPECT_EQ(closed.get(), errc::closed);
}

TEST(Port, LinesAndEventsCrossTheCable) {
    port a("null-modem:events"), b("null-modem:events");
    brisolt::counters seen = b.counted();
    a.set_rts(false);
    a.set_dtr(false);
    EXPECT_TRUE(any(b.wait(brisolt::event::cts, seen, patience), brisolt::event::cts));
    EXPECT_TRUE(
        any(b.wait(brisolt::event::carrier | brisolt::event::dsr, seen, patience), brisolt::event::dsr));
    const auto lines = b.lines();
    EXPECT_FALSE(lines.cts || lines.dsr || lines.carrier);
    EXPECT_TRUE(lines.dtr && lines.rts);

    EXPECT_EQ(b.wait(brisolt::event::break_seen, seen, 0s), brisolt::event::none);
    a.set_break(true);
    EXPECT_EQ(b.wait(brisolt::event::break_seen, seen, patience), brisolt::event::break_seen);
    EXPECT_EQ(b.state(), brisolt::device_state::there);

    const port none;
    std::error_code error;
    EXPECT_EQ(none.counted(error).received, 0u);
    EXPECT_EQ(error, errc::closed);
    EXPECT_EQ(none.state(), brisolt::device_state::closed);
}

TEST(Port, DevicesAreThoseOfTheMachine) {
    const auto all = brisolt::devices();
    ComHostDeviceInfo info{};
    info.size = sizeof info;
    std::size_t count = 0;
    for (; ComHostGetDeviceInfo(static_cast<std::int32_t>(count), &info) == 1; ++count) {
        ASSERT_LT(count, all.size()) << "none is left out";
        EXPECT_EQ(all[count].path, info.path);
        EXPECT_EQ(all[count].vendor_id.value_or(-1), info.vendorId);
    }
    EXPECT_EQ(count, all.size());
}

} // namespace
