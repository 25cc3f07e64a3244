// The life of a call, and the turn in which everything is looked at.
#include "modem.h"

#include <algorithm>
#include <utility>

namespace simulated {

std::string_view nameOf(Phase phase) {
    constexpr std::string_view names[] = {"idle",      "offHook",  "dialling", "calling",
                                          "answering", "training", "online",   "escaped"};
    return names[static_cast<std::size_t>(phase)];
}

Modem::Modem(Line& line, Telephone& telephone, Exchange& exchange, const Clock& clock, const Options& options)
    : line_(line), telephone_(telephone), exchange_(exchange), clock_(clock), options_(options) {
    restoreStored(options_.stored);
}

void Modem::turn() {
    Phase before;
    do {
        before = phase_;
        now_ = clock_.now();
        lookAtDtr();
        telephone_.turn(phase_ != Phase::idle);
        lookAtCalls();
        if (thinking_.over(now_)) {
            thinking_.stop();
            execute(commandLine_.commands());
        }
        // A program that never stops talking is not all that a modem has to look at.
        constexpr int fair = 64;
        unread_ = true;
        for (int part = 0; unread_ && part < fair; ++part) {
            unread_ = readProgram();
            pump();
            showCarrier();
            flush();
            unread_ = unread_ && takesBytes();
        }
        if (escape_.over(now_))
            escape();
    } while (phase_ != before);
}

int Modem::watch(std::vector<pollfd>& entries) {
    constexpr std::size_t enough = 4096;
    const bool heldByProgram = heldByXoff_ && phase_ == Phase::online;
    const int lineWants = line_.watch(entries, takesBytes(), !toProgram_.empty() && !heldByProgram);
    telephone_.watch(entries, phase_ == Phase::online && toProgram_.size() < enough, !toTelephone_.empty(),
                     phase_ == Phase::training || phase_ == Phase::escaped);
    Milliseconds due = never;
    for (const Timer* timer : {&thinking_, &patience_, &ringing_, &dtrDown_, &carrierLost_, &drop_, &escape_})
        due = std::min(due, timer->due);
    const int weWant = unread_ ? 0 : clock_.realMillisecondsTo(due);
    return weWant < 0 || lineWants < 0 ? std::max(weWant, lineWants) : std::min(weWant, lineWants);
}

Status Modem::status() const {
    Status status;
    status.phase = phase_;
    status.ringing = ringing_.runs();
    status.rings = profile_.registers[ringCount];
    status.carrier = carrier_;
    status.dtr = dtr_;
    status.rate = inCall() ? telephone_.rate() : 0;
    status.other = telephone_.other();
    return status;
}

void Modem::setDropAfter(Milliseconds time) {
    drop_.stop();
    dropAfter_ = never;
    if (!inCall())
        dropAfter_ = time;
    else if (time != never)
        drop_.start(clock_.now(), time);
}

void Modem::log(const std::string& text) const {
    if (options_.log)
        options_.log(text);
}

// ---- DTR and carrier -------------------------------------------------------------------------------------

void Modem::lookAtDtr() {
    if (line_.dtr()) {
        dtr_ = true;
        dtrDown_.stop();
    } else if (dtr_) {
        if (!dtrDown_.runs())
            dtrDown_.start(now_, Milliseconds(10 * profile_.registers[dtrTime]));
        if (dtrDown_.over(now_)) {
            dtrDown_.stop();
            dtr_ = false;
            dtrDropped();
        }
    }
}

void Modem::dtrDropped() {
    log("DTR has dropped");
    commandLine_.forget();
    const int rule = profile_["&D"];
    if (rule == 1 && phase_ == Phase::online)
        escape();
    if (rule >= 2) {
        // What has been sent and not done yet is not done for whoever comes next.
        thinking_.stop();
        input_.clear();
        if (phase_ == Phase::offHook)
            hangUp();
        else if (phase_ != Phase::idle)
            fail(Result::noCarrier);
    }
    if (rule == 3)
        restore(profile_["&Y"]);
}

void Modem::showCarrier() {
    const bool carrier = inCall() || profile_["&C"] == 0;
    if (carrier != carrier_)
        line_.setCarrier(carrier);
    carrier_ = carrier;
}

// ---- Calls -----------------------------------------------------------------------------------------------

void Modem::lookAtCalls() {
    if (phase_ == Phase::training || phase_ == Phase::escaped)
        telephone_.noticeLoss();
    const Call call = telephone_.call();
    switch (phase_) {
    case Phase::idle:
        if (call == Call::incoming)
            ring();
        else
            stopRinging();
        if (call == Call::lost)
            telephone_.hangUp();
        break;
    case Phase::offHook: break;
    case Phase::dialling:
        if (patience_.over(now_))
            digitsDialled();
        break;
    case Phase::calling:
    case Phase::answering: waitForAnswer(); break;
    case Phase::training:
        if (call == Call::lost)
            fail(Result::noCarrier);
        else if (patience_.over(now_))
            connected();
        break;
    case Phase::online:
    case Phase::escaped:
        if (drop_.over(now_)) {
            drop_.stop();
            telephone_.cut();
        }
        if (telephone_.call() == Call::lost && !carrierLost_.runs())
            carrierLost_.start(now_, Milliseconds(100 * profile_.registers[carrierLossTime]));
        if (carrierLost_.over(now_))
            fail(Result::noCarrier);
        break;
    }
}

void Modem::waitForAnswer() {
    const Call call = telephone_.call();
    if (call == Call::connected)
        train();
    else if (call == Call::busy && level().hearsBusy)
        fail(Result::busy);
    else if (call == Call::refused || call == Call::lost)
        fail(Result::noCarrier);
    else if (patience_.over(now_))
        fail(plan_.quietAnswer && call == Call::ringing ? Result::noAnswer : Result::noCarrier);
}

void Modem::ring() {
    const bool first = !ringing_.runs();
    if (!first && !ringing_.over(now_))
        return;
    ringOn_ = first || !ringOn_;
    line_.setRing(ringOn_);
    ringing_.start(now_, ringOn_ ? options_.ringOn : options_.ringOff);
    if (!ringOn_)
        return;

    uint8_t& rings = profile_.registers[ringCount];
    if (first)
        rings = 0;
    rings = static_cast<uint8_t>(std::min(rings + 1, 255));
    log("ring " + std::to_string(rings) + " from " + telephone_.other());
    // Nobody is interrupted while he types.
    if (!commandLine_.begun())
        say(Result::ring);
    const int wanted = profile_.registers[ringsToAnswer];
    const bool somebodyThere = dtr_ || profile_["&D"] < 2;
    if (wanted != 0 && rings >= wanted && somebodyThere)
        answerCall();
}

void Modem::stopRinging() {
    if (!ringing_.runs())
        return;
    ringing_.stop();
    if (ringOn_)
        line_.setRing(false);
    ringOn_ = false;
    profile_.registers[ringCount] = 0;
}

void Modem::answerCall() {
    const uint8_t rings = profile_.registers[ringCount];
    stopRinging();
    profile_.registers[ringCount] = rings;
    plan_ = {};
    phase_ = Phase::answering;
    patience_.start(now_, carrierPatience());
    telephone_.answer(options_.rate);
}

/// The digits have gone out, or the dial tone has not come.
void Modem::digitsDialled() {
    if (toneMissing_) {
        fail(Result::noDialtone);
        return;
    }
    patience_.stop();
    collected_ += plan_.number;
    const Fate fate = exchange_.find(collected_).fate;
    if (telephone_.call() == Call::none && !collected_.empty()) {
        // Digits that make no number yet may be followed by more.
        const bool incomplete = plan_.staysCommanded && fate == Fate::nobody;
        const bool heard = options_.dialtone && fate != Fate::noDialtone;
        lastNumber_ = collected_;
        if (heard && !incomplete)
            telephone_.dial(std::exchange(collected_, {}));
    }
    if (plan_.staysCommanded) {
        phase_ = Phase::offHook;
        execute(std::string(rest_));
    } else {
        phase_ = Phase::calling;
        patience_.start(now_, carrierPatience());
        telephone_.wantData(options_.rate);
        waitForAnswer();
    }
}

void Modem::train() {
    phase_ = Phase::training;
    patience_.start(now_, options_.training);
}

void Modem::connected() {
    patience_.stop();
    phase_ = Phase::online;
    passed_ = 0;
    escapes_ = 0;
    lastData_ = now_;
    toTelephone_.clear();
    if (dropAfter_ != never)
        drop_.start(now_, std::exchange(dropAfter_, never));
    log("connected with " + telephone_.other() + " at " + std::to_string(telephone_.rate()));
    say(Result::connect, telephone_.rate());
}

void Modem::fail(Result result) {
    hangUp();
    say(result);
}

void Modem::hangUp() {
    if (phase_ != Phase::idle)
        log("hangs up");
    stopRinging();
    telephone_.hangUp();
    phase_ = Phase::idle;
    for (Timer* timer : {&patience_, &carrierLost_, &drop_, &escape_})
        timer->stop();
    toTelephone_.clear();
    collected_.clear();
    heldByXoff_ = saidXoff_ = false;
}

} // namespace simulated
