// What each command does.
#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "modem.h"

namespace simulated {

namespace {

/// What I tells, by number.
constexpr std::string_view identity[] = {"33600", "OK", "OK", "brisolt modem simulator", "", "", "",
                                         "",      "",   ""};

struct Information {
    std::string_view name;
    std::string_view text;
};
constexpr Information extendedIdentity[] = {{"GMI", "brisolt"},
                                            {"GMM", "modem simulator"},
                                            {"GMR", "1.0"},
                                            {"GSN", "1"},
                                            {"GCAP", "+GCAP: +DS, +ES, +FCLASS, +MS"}};

/// How long a modem listens for a dial tone.
constexpr Milliseconds tonePatience{5000};
/// From a dial tone to the first digit.
constexpr Milliseconds toneHeard{500};
/// Keys that come right behind a dial command belong to it: a line feed, say.
constexpr Milliseconds deafTime{125};

} // namespace

// Everything else with a number is a setting of the profile.
const Modem::Action Modem::actions[] = {
    {"A", &Modem::answerNow},     {"D", &Modem::dial},          {"H", &Modem::hook},
    {"I", &Modem::information},   {"O", &Modem::goOnline},      {"P", &Modem::dialMode},
    {"S", &Modem::registers},     {"T", &Modem::dialMode},      {"Z", &Modem::reset},
    {"=", &Modem::namedRegister}, {"?", &Modem::namedRegister}, {"&F", &Modem::factory},
    {"&V", &Modem::view},         {"&W", &Modem::store},        {"&Z", &Modem::storeNumber},
};

void Modem::takeLine() {
    const std::string& commands = commandLine_.commands();
    commands_.push_back("AT" + commands);
    log("command " + commands_.back());
    if (const auto fault = faults.meet(commands)) {
        log("a fault is wanted here");
        if (fault->mishap == Mishap::refusal)
            say(Result::error);
        else if (fault->mishap == Mishap::slowness)
            thinking_.start(now_, fault->delay);
        return;
    }
    execute(commands);
}

void Modem::execute(std::string_view commands) {
    if (commandLine_.tooLong()) {
        say(Result::error);
        return;
    }
    while (const auto command = nextCommand(commands)) {
        rest_ = commands;
        switch (perform(*command)) {
        case Outcome::next: break;
        case Outcome::done: say(Result::ok); return;
        case Outcome::error: say(Result::error); return;
        case Outcome::silent: return;
        }
    }
    say(Result::ok);
}

Modem::Outcome Modem::perform(const Command& command) {
    if (command.name.starts_with('+'))
        return extended(command);
    const auto* const action =
        std::find_if(std::begin(actions), std::end(actions),
                     [&command](const Action& one) { return one.name == command.name; });
    if (action != std::end(actions))
        return (this->*action->function)(command);
    return profile_.set(command.name, command.number.value_or(0)) ? Outcome::next : Outcome::error;
}

/// The first profile as it was stored in an earlier life.
void Modem::restoreStored(const std::string& line) {
    std::string ignored;
    CommandLine reader;
    const std::string begin = line.starts_with("AT") || line.starts_with("at") ? "" : "AT";
    for (const char character : begin + line + '\r')
        reader.take(character, profile_.registers, ignored);
    std::string_view rest = reader.commands();
    while (const auto command = nextCommand(rest))
        if (reader.tooLong() || perform(*command) != Outcome::next || phase_ != Phase::idle)
            throw std::runtime_error("\"" + line + "\" cannot be stored");
    stored_[0] = profile_;
    toProgram_.clear();
}

// ---- Calls -----------------------------------------------------------------------------------------------

Modem::Outcome Modem::dialMode(const Command& command) {
    tone_ = command.name == "T";
    return Outcome::next;
}

Modem::Outcome Modem::dial(const Command& command) {
    if (phase_ != Phase::idle && phase_ != Phase::offHook)
        return Outcome::error;
    plan_ = planDialling(command.text, tone_, profile_.registers);
    if (plan_.redials)
        plan_.number = lastNumber_;
    if (plan_.stored >= 0) {
        if (plan_.stored >= static_cast<int>(numbers_.size()))
            return Outcome::error;
        plan_.number += numbers_[static_cast<std::size_t>(plan_.stored)];
    }
    if (phase_ == Phase::idle) {
        // Whoever was ringing is cut off: the line is taken.
        stopRinging();
        telephone_.hangUp();
        collected_.clear();
    }

    const bool lineIsOpen = phase_ == Phase::offHook;
    const bool listens = !lineIsOpen && (level().hearsDialtone || plan_.waitsForTone);
    const std::string number = collected_ + plan_.number;
    const bool hasTone = options_.dialtone && exchange_.find(number).fate != Fate::noDialtone;
    toneMissing_ = listens && !hasTone;
    phase_ = Phase::dialling;
    keysFrom_ = now_ + deafTime;
    log("dials " + number);
    if (toneMissing_)
        patience_.start(now_, plan_.waitsForTone ? carrierPatience() : tonePatience);
    else if (lineIsOpen)
        patience_.start(now_, plan_.duration);
    else if (listens)
        patience_.start(now_, toneHeard + plan_.duration);
    else
        patience_.start(now_, std::chrono::seconds(profile_.registers[blindDialWait]) + plan_.duration);
    return Outcome::silent;
}

Modem::Outcome Modem::answerNow(const Command&) {
    if (phase_ != Phase::idle && phase_ != Phase::offHook)
        return Outcome::error;
    keysFrom_ = now_ + deafTime;
    answerCall();
    return Outcome::silent;
}

Modem::Outcome Modem::hook(const Command& command) {
    const int number = command.number.value_or(0);
    if (number > 1)
        return Outcome::error;
    if (number == 0 && phase_ != Phase::idle) {
        hangUp();
    } else if (number == 1 && phase_ == Phase::idle) {
        // Picked up without an answer tone: whoever calls hears nothing and is gone.
        hangUp();
        phase_ = Phase::offHook;
    }
    return Outcome::next;
}

Modem::Outcome Modem::goOnline(const Command& command) {
    if (command.number.value_or(0) > 3)
        return Outcome::error;
    if (phase_ == Phase::escaped) {
        phase_ = Phase::online;
        escapes_ = 0;
        lastData_ = now_;
        say(Result::connect, telephone_.rate());
    } else if (phase_ == Phase::offHook && telephone_.call() != Call::none) {
        phase_ = Phase::calling;
        keysFrom_ = now_ + deafTime;
        patience_.start(now_, carrierPatience());
        telephone_.wantData(options_.rate);
    } else {
        say(Result::noCarrier);
    }
    return Outcome::silent;
}

// ---- Settings --------------------------------------------------------------------------------------------

Modem::Outcome Modem::information(const Command& command) {
    const auto number = static_cast<std::size_t>(command.number.value_or(0));
    if (number >= std::size(identity))
        return Outcome::error;
    if (!identity[number].empty())
        inform(identity[number]);
    return Outcome::next;
}

Modem::Outcome Modem::reset(const Command& command) {
    const int number = command.number.value_or(0);
    if (number > 1)
        return Outcome::error;
    if (phase_ != Phase::idle)
        hangUp();
    restore(number);
    // What stands behind it on the line would be set by a modem that is about to forget it.
    return Outcome::done;
}

/// &Y is no part of the profiles that it chooses from.
void Modem::restore(int number) {
    const int chosen = profile_["&Y"];
    profile_ = stored_.at(static_cast<std::size_t>(number));
    profile_.set("&Y", chosen);
}

Modem::Outcome Modem::registers(const Command& command) {
    namedRegister_ = command.number.value_or(0);
    return namedRegister(command);
}

Modem::Outcome Modem::namedRegister(const Command& command) {
    if (command.assigned && !profile_.registers.set(namedRegister_, *command.assigned))
        return Outcome::error;
    const std::string value = profile_.registers.show(namedRegister_);
    if (value.empty())
        return Outcome::error;
    if (command.query)
        inform(value);
    return Outcome::next;
}

Modem::Outcome Modem::extended(const Command& command) {
    const std::string name = command.name.substr(1);
    for (const Information& known : extendedIdentity)
        if (known.name == name) {
            inform(known.text);
            return Outcome::next;
        }
    const auto setting = profile_.extended.find(name);
    if (setting == profile_.extended.end())
        return Outcome::error;
    // The class of service is told bare, since it is older than the others.
    const std::string head = name == "FCLASS" ? "" : "+" + name + ": ";
    if (command.query)
        inform(head + setting->second);
    else if (command.text == "?")
        inform(head + std::string(extendedValues(name)));
    else if (!profile_.setExtended(name, command.text))
        return Outcome::error;
    return Outcome::next;
}

Modem::Outcome Modem::factory(const Command& command) {
    if (command.number.value_or(0) > 3)
        return Outcome::error;
    profile_ = Profile();
    return Outcome::next;
}

Modem::Outcome Modem::view(const Command&) {
    inform(profile_.show());
    return Outcome::next;
}

Modem::Outcome Modem::store(const Command& command) {
    const auto place = static_cast<std::size_t>(command.number.value_or(0));
    if (place >= stored_.size())
        return Outcome::error;
    stored_[place] = profile_;
    stored_[place].registers[ringCount] = 0;
    return Outcome::next;
}

Modem::Outcome Modem::storeNumber(const Command& command) {
    const auto place = static_cast<std::size_t>(command.number.value_or(0));
    if (place >= numbers_.size())
        return Outcome::error;
    numbers_[place] = Exchange::digits(command.text);
    return Outcome::next;
}

} // namespace simulated
