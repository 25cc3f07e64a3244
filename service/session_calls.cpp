// The life of a call on a modem: how it begins, what is reported about it, how it ends.
#include <chrono>

#include <poll.h>

#include "messages.h"
#include "session.h"

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

/// Rings come 6 seconds apart at most; who has not rung for so long has given up.
constexpr auto ringGap = 9s;
/// For what a program has left behind to be sent before its call ends.
constexpr auto drainPatience = 2s;
constexpr auto drainInterval = 100ms;
constexpr uint32_t ringMode = 1; ///< modems know of no other

} // namespace

void Session::report(uint32_t state) {
    const std::lock_guard guard(switchboard().mutex);
    postCallState(modem_, state, 0);
}

void Session::heard(std::string_view text) {
    const Code& code = codeOf(text);
    if (phase_ == Phase::idle) {
        if (code.result == Result::ring)
            rang();
        return;
    }
    switch (code.result) {
    case Result::connected: connected(); break;
    case Result::ringBack: report(callState::ringBack); break;
    case Result::proceeding: report(callState::proceeding); break;
    case Result::ok:
    case Result::error:
    case Result::failed:
        disconnected(phase_ == Phase::dialling ? code.cause : uint32_t{disconnectedBy::normal});
        break;
    case Result::ring:
    case Result::information: break;
    }
}

// ---- beginnings

void Session::rang() {
    ++rings_;
    ringsUntil_ = Clock::now() + ringGap;
    Switchboard& board = switchboard();
    const std::lock_guard guard(board.mutex);
    const bool wantsCalls = (modem_->privileges & (privilege::owner | privilege::monitor)) != 0;
    if (wantsCalls && !offered_ && modem_->line != 0 && !modem_->busy && modem_->call.isOver()) {
        offered_ = true;
        modem_->call = {.handle = board.newHandle()};
        postCallState(modem_, callState::offering, 0);
    }
    postLineState(modem_, deviceState::ringing, ringMode, rings_);
}

/// Who rang has given up, or has been answered.
void Session::ringingEnded() {
    ringsUntil_.reset();
    rings_ = 0;
    offered_ = false;
    const std::lock_guard guard(switchboard().mutex);
    // The program may want it answered at this very moment; the modem then tells what becomes of that.
    if (modem_->call.state != callState::offering || modem_->busy)
        return;
    postCallState(modem_, callState::disconnected, disconnectedBy::normal);
    postCallState(modem_, callState::idle, 0);
}

void Session::place(std::string_view number, int32_t request) {
    begin(Phase::dialling, settings_.dial, number, request);
    if (phase_ == Phase::dialling)
        report(callState::proceeding);
}

void Session::answer(int32_t request) {
    begin(Phase::answering, settings_.answer, {}, request);
}

void Session::begin(Phase phase, std::string_view command, std::string_view number, int32_t request) {
    if (phase_ != Phase::idle) // the device went away meanwhile
        return;
    ringsUntil_.reset();
    rings_ = 0;
    offered_ = false;
    relay_.close();
    {
        const std::lock_guard guard(switchboard().mutex);
        postReply(modem_, request, 0);
        if (phase == Phase::dialling)
            postCallState(modem_, callState::dialling, 0);
    }
    phase_ = phase;
    if (!dialogue_.say(command) || !dialogue_.say(number) || !dialogue_.say("\r"))
        disconnected(disconnectedBy::unavailable);
}

/// The line itself goes to the program where its carrier shows; it is then read by nobody else.
void Session::connected() {
    const SerialLine& line = dialogue_.line();
    const bool carrierShows = line.carrier();
    if (!carrierShows && !relay_.open(settings_.speed)) {
        dialogue_.hangUp(settings_.hangUp);
        disconnected(disconnectedBy::unavailable);
        return;
    }
    phase_ = Phase::talking;
    const std::lock_guard guard(switchboard().mutex);
    modem_->handOver = carrierShows ? line.descriptor() : relay_.descriptor();
    postCallState(modem_, callState::connected, 0);
}

// ---- ends

/// By itself. What the other end sent last can still be read by the program, from the line or from the call's
/// terminal.
void Session::disconnected(uint32_t cause) {
    const bool answering = phase_ == Phase::answering;
    phase_ = phase_ == Phase::talking && !relay_.isOpen() ? Phase::lent : Phase::idle;
    const std::lock_guard guard(switchboard().mutex);
    modem_->handOver = -1;
    modem_->busy = modem_->requests.aboutCall();
    postCallState(modem_, callState::disconnected, cause);
    if (answering) // it never was a call that somebody would have to drop
        postCallState(modem_, callState::idle, 0);
}

/// So the line says, and it may have been the other end's words: the modem is hung up all the same, or a call
/// that nobody knows of would go on. The program hears of the end at once, and the modem is busy a little longer.
void Session::hungUpThere() {
    {
        const std::lock_guard guard(switchboard().mutex);
        modem_->handOver = -1;
        postCallState(modem_, callState::disconnected, disconnectedBy::normal);
    }
    dialogue_.hangUp(settings_.hangUp);
    phase_ = Phase::idle;
    const std::lock_guard guard(switchboard().mutex);
    modem_->busy = modem_->requests.aboutCall();
}

void Session::drop(int32_t request) {
    endCall();
    const std::lock_guard guard(switchboard().mutex);
    modem_->busy = false;
    modem_->call.dropping = false;
    postReply(modem_, request, 0);
    postCallState(modem_, callState::idle, 0);
}

void Session::endCall() {
    {
        const std::lock_guard guard(switchboard().mutex);
        modem_->handOver = -1;
    }
    if (phase_ == Phase::dialling || phase_ == Phase::answering)
        dialogue_.abandon(settings_.hangUp);
    if (phase_ == Phase::talking) {
        const auto until = Clock::now() + drainPatience;
        pollfd entry{dialogue_.line().descriptor(), POLLOUT, 0};
        while (relay_.isOpen() && relay_.drain(dialogue_.line()) && Clock::now() < until)
            waitFor({&entry, 1}, Clock::now() + drainInterval);
        dialogue_.hangUp(settings_.hangUp);
    }
    if (phase_ == Phase::lent)
        dialogue_.line().discardInput();
    relay_.close();
    if (phase_ != Phase::gone)
        phase_ = Phase::idle;
}

void Session::deviceGone() {
    const bool dialled = phase_ == Phase::dialling || phase_ == Phase::answering;
    phase_ = Phase::gone;
    const std::lock_guard guard(switchboard().mutex);
    modem_->gone = true;
    modem_->busy = false;
    modem_->handOver = -1;
    if (!modem_->call.isOver() && modem_->call.state != callState::disconnected)
        postCallState(modem_, callState::disconnected,
                      dialled ? disconnectedBy::unavailable : disconnectedBy::normal);
    postLineState(modem_, deviceState::disconnected, 0, 0);
}

} // namespace brisolt::service
