#include "dialogue.h"

#include <algorithm>
#include <array>
#include <utility>

#include "refusals.h"

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

/// What every modem obeys, and what all that is read here relies on: results in words, and no answer to a
/// caller before the program wants it.
constexpr std::string_view basics = "ATE0Q0V1S0=0";

constexpr auto greetingPatience = 700ms;
constexpr auto setUpPatience = 5000ms; // some reset themselves for seconds
constexpr auto hangUpPatience = 2000ms;
constexpr auto keyPatience = 1000ms;
constexpr auto roomPatience = 2000ms;
/// The silence around the escape characters that the S12 of nearly all modems asks for, and a little more.
constexpr auto guardTime = 1100ms;
/// Longer than any S25.
constexpr auto dtrTime = 700ms;

std::vector<std::string> commandsOf(std::string_view init) {
    std::vector<std::string> commands;
    while (!init.empty()) {
        const std::size_t end = std::min(init.find('|'), init.size());
        if (end > 0)
            commands.emplace_back(init.substr(0, end));
        init.remove_prefix(std::min(end + 1, init.size()));
    }
    return commands;
}

} // namespace

int32_t Dialogue::open(const ModemSettings& settings) {
    if (const int32_t result = line_.open(settings); result != result::success)
        return result;
    if (!greet()) {
        complainOf(settings, "no modem answers");
        return result::operationFailed;
    }
    for (const std::string& text : commandsOf(settings.init))
        if (!setUp(settings, text))
            return result::operationFailed;
    // Once more: a reset may have undone it.
    return setUp(settings, std::string(basics)) ? result::success : result::operationFailed;
}

/// Nothing is wrong with the modem when the opening was called off.
void Dialogue::complainOf(const ModemSettings& settings, const std::string& what) const {
    if (!called_)
        complain("[" + settings.name + "] " + settings.device + ": " + what);
}

bool Dialogue::greet() {
    for (int attempt = 0; attempt < 3 && !called_; ++attempt) {
        // Perhaps it is in a call that a program left behind.
        if (attempt == 2)
            escape(greetingPatience);
        if (command(basics, greetingPatience) == Result::ok)
            return true;
    }
    return false;
}

bool Dialogue::setUp(const ModemSettings& settings, const std::string& text) {
    std::optional<Result> result = command(text, setUpPatience);
    if (!result && !called_) // it may have been deaf after a reset
        result = command(text, setUpPatience);
    if (result == Result::ok)
        return true;
    complainOf(settings, (result ? "the modem refuses " : "no answer to ") + text);
    return false;
}

// ---- what is said and heard

Dialogue::Heard Dialogue::pause(Until until, int forRoom) {
    std::array<pollfd, 3> entries{{{deaf_ ? -1 : wake_.descriptor(), POLLIN, 0},
                                   {line_.descriptor(), POLLIN, 0},
                                   {forRoom, POLLOUT, 0}}};
    if (!waitFor(entries, until))
        return Heard::silence;
    if (!deaf_ && wake_.called()) {
        called_ = true;
        return Heard::called;
    }
    if (entries[2].revents != 0)
        return Heard::room;
    const bool hungUp = (entries[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    return hungUp && (entries[1].revents & POLLIN) == 0 ? Heard::gone : Heard::line;
}

Dialogue::Heard Dialogue::listen(std::string_view& text, Until until, int forRoom) {
    constexpr std::size_t manyBytes = 256; // a line that never falls silent must not keep us from the wake
    for (std::size_t taken = 1; !until || Clock::now() < *until; ++taken) {
        if (taken % manyBytes == 0 && pause(Clock::now(), -1) == Heard::called)
            return Heard::called;
        char byte = 0;
        const ssize_t count = line_.read(&byte, 1);
        if (count < 0)
            return Heard::gone;
        if (count == 0) {
            if (const Heard heard = pause(until, forRoom); heard != Heard::line)
                return heard;
        } else if (byte == '\n' && begunSize_ > 0) {
            text = {begun_.data(), std::exchange(begunSize_, 0)};
            return Heard::line;
        } else if (byte >= ' ' && begunSize_ < begun_.size()) {
            begun_[begunSize_++] = byte;
        }
    }
    return Heard::silence;
}

bool Dialogue::say(std::string_view bytes) {
    const auto until = Clock::now() + roomPatience;
    while (!bytes.empty()) {
        const ssize_t count = line_.write(bytes);
        if (count < 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
        pollfd entry{line_.descriptor(), POLLOUT, 0};
        if (!bytes.empty() && (Clock::now() >= until || !waitFor({&entry, 1}, until)))
            return false;
    }
    return true;
}

std::optional<Result> Dialogue::command(std::string_view text, Milliseconds patience) {
    line_.discardInput();
    begunSize_ = 0;
    if (!say(text) || !say("\r"))
        return std::nullopt;
    return awaitResult(patience);
}

/// Results that end a command; a caller's ring, say, does not.
std::optional<Result> Dialogue::awaitResult(Milliseconds patience) {
    const auto until = Clock::now() + patience;
    std::string_view text;
    while (listen(text, until) == Heard::line) {
        const Result result = codeOf(text).result;
        if (result == Result::ok || result == Result::error || result == Result::failed ||
            result == Result::connected)
            return result;
    }
    return std::nullopt;
}

// ---- ends

void Dialogue::hangUp(HangUp how) {
    deaf_ = true;
    called_ = false;
    // What the program has sent may have broken the first silence.
    if (how == HangUp::escape || !dropDtr())
        static_cast<void>(escape(hangUpPatience) || escape(hangUpPatience));
    deaf_ = false;
}

/// Listens for all of the time.
bool Dialogue::heardOk(Milliseconds patience) {
    const auto until = Clock::now() + patience;
    std::string_view text;
    bool ok = false;
    while (listen(text, until) == Heard::line)
        ok = ok || codeOf(text).result == Result::ok;
    return ok;
}

/// False: there is no such signal, or the modem does not heed it.
bool Dialogue::dropDtr() {
    if (!line_.setDtr(false))
        return false;
    heardOk(dtrTime);
    line_.setDtr(true);
    return command(basics, keyPatience) == Result::ok;
}

/// The silence, the escape characters, the silence: in full, whatever is heard meanwhile. It may be the other
/// end's words, and a command that comes too soon is data to a modem in a call. True when it is on hook.
bool Dialogue::escape(Milliseconds patience) {
    heardOk(guardTime);
    if (called_ || !say("+++"))
        return false;
    if (!heardOk(guardTime) && !called_)
        awaitResult(greetingPatience);
    return !called_ && command("ATH0", patience) == Result::ok;
}

void Dialogue::abandon(HangUp how) {
    deaf_ = true;
    called_ = false;
    std::optional<Result> result;
    // Any key ends the attempt, but not one that comes too soon.
    for (int attempt = 0; attempt < 3 && !result; ++attempt)
        if (say("\r"))
            result = awaitResult(keyPatience);
    deaf_ = false;
    if (!result || result == Result::connected)
        hangUp(how);
}

} // namespace brisolt::service
