// The bytes between the program, the modem and the telephone.
#include <algorithm>
#include <utility>

#include "modem.h"

namespace simulated {

namespace {

// A side that does not take its bytes holds the other one off from here on.
constexpr std::size_t enough = 4096;
// With XON/XOFF the program is told before, and again when there is room.
constexpr std::size_t high = enough / 2, low = enough / 4;
// Answers to a program that reads none are not kept for ever.
constexpr std::size_t tooMuch = 65536;

constexpr char xon = 0x11, xoff = 0x13;

} // namespace

bool Modem::takesBytes() const {
    return !thinking_.runs() && toTelephone_.size() < enough && toProgram_.size() < enough;
}

/// Takes a part; true when the program may have more to say than was taken.
bool Modem::readProgram() {
    if (takesBytes() && input_.empty()) {
        std::string bytes = line_.read(1024);
        if (bytes.empty())
            return false;
        // Nothing is done before it is known that somebody is there for whom it is done.
        lookAtDtr();
        input_ = std::move(bytes);
    }
    std::size_t done = 0;
    while (done < input_.size() && takesBytes())
        takeByte(input_[done++]);
    input_.erase(0, done);
    return true;
}

void Modem::takeByte(char byte) {
    switch (phase_) {
    case Phase::online: takeDataByte(byte); break;
    case Phase::idle:
    case Phase::offHook:
    case Phase::escaped: takeCommandByte(byte); break;
    default:
        // Any key ends an attempt, but for those that came with the command.
        if (now_ >= keysFrom_ && byte != profile_.registers.character(lineFeedCharacter))
            fail(Result::noCarrier);
    }
}

void Modem::takeCommandByte(char byte) {
    std::string echo;
    const bool complete = commandLine_.take(byte, profile_.registers, echo);
    if (profile_["E"] == 1)
        send(echo);
    if (complete)
        takeLine();
}

void Modem::takeDataByte(char byte) {
    if (profile_.softwareFlow() && (byte == xon || byte == xoff)) {
        heldByXoff_ = byte == xoff;
        return;
    }
    watchForEscape(byte);
    toTelephone_ += byte;
}

/// Three escape characters with silence before and behind them; they are data as well, as they could be.
void Modem::watchForEscape(char byte) {
    constexpr int needed = 3;
    const Milliseconds guard(20 * profile_.registers[guardTime]);
    const bool afterSilence = now_ - lastData_ >= guard;
    lastData_ = now_;
    escape_.stop();
    const uint8_t character = profile_.registers[escapeCharacter];
    if (character > 127 || static_cast<uint8_t>(byte) != character)
        escapes_ = 0;
    else if (guard.count() > 0 && afterSilence)
        escapes_ = 1;
    else if (escapes_ > 0 || guard.count() == 0)
        ++escapes_;
    if (escapes_ == needed)
        escape_.start(now_, guard);
}

void Modem::escape() {
    escape_.stop();
    escapes_ = 0;
    if (phase_ != Phase::online)
        return;
    phase_ = Phase::escaped;
    heldByXoff_ = false;
    say(Result::ok);
}

void Modem::pump() {
    if (phase_ == Phase::online && toProgram_.size() < enough) {
        const std::string bytes = telephone_.receive(enough - toProgram_.size());
        passed_ += bytes.size();
        send(bytes);
    }
    if (inCall() && !toTelephone_.empty()) {
        const std::size_t count = telephone_.send(toTelephone_);
        toTelephone_.erase(0, count);
        passed_ += count;
    }
    if (inCall() && dropAfterBytes != 0 && passed_ >= dropAfterBytes) {
        dropAfterBytes = 0;
        telephone_.cut();
    }
    // The end of a line shows at once; the call ends a moment later (S10).
    if (inCall() && telephone_.call() == Call::lost && !carrierLost_.runs())
        lookAtCalls();
    sayFlow();
}

void Modem::sayFlow() {
    const bool stop =
        phase_ == Phase::online && profile_.softwareFlow() && toTelephone_.size() >= (saidXoff_ ? low : high);
    if (stop == saidXoff_)
        return;
    saidXoff_ = stop;
    toProgram_.insert(toProgram_.begin(), stop ? xoff : xon);
}

void Modem::flush() {
    if (heldByXoff_ && phase_ == Phase::online)
        return;
    while (!toProgram_.empty()) {
        const std::size_t count = line_.write(toProgram_);
        if (count == 0)
            return;
        toProgram_.erase(0, count);
    }
}

// ---- Answers ---------------------------------------------------------------------------------------------

Writing Modem::writing() const {
    return {profile_["V"] == 1, profile_.registers.character(endCharacter),
            profile_.registers.character(lineFeedCharacter)};
}

void Modem::say(Result result, int rate) {
    const std::string words = resultText(result, level().tellsRate ? rate : 0, writing());
    if (profile_["Q"] == 0)
        send(words);
}

void Modem::inform(std::string_view text) {
    send(informationText(text, writing()));
}

void Modem::send(std::string bytes) {
    if (toProgram_.size() < tooMuch)
        toProgram_ += noise.mixInto(std::move(bytes));
}

} // namespace simulated
