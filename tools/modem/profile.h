// What a program can set of a modem and the modem can go back to: &F to the factory's, Z to the stored.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "s_registers.h"

namespace simulated {

struct Profile {
    /// As it leaves the factory.
    Profile();

    SRegisters registers;
    /// Commands with a number, by name ("E", "&C").
    std::map<std::string, int, std::less<>> settings;
    /// Commands with a plus, by name ("IFC"), with what they were set to.
    std::map<std::string, std::string, std::less<>> extended;

    int operator[](std::string_view name) const { return settings.find(name)->second; }
    /// False when there is no such command, or it takes no such number.
    bool set(std::string_view name, int value);
    /// The same of a plus command; an empty value is the factory's.
    bool setExtended(std::string_view name, std::string_view value);
    /// Whether XON and XOFF from the program hold the modem off: &K4 and its relatives. Whichever of them
    /// was set last counts.
    bool softwareFlow() const { return flow_ == Flow::software; }
    std::string show() const;

private:
    enum class Flow { other, software };
    Flow flow_ = Flow::other;
};

/// The values that a plus command knows, as +IFC=? tells them; empty when there is no such command.
std::string_view extendedValues(std::string_view name);

} // namespace simulated
