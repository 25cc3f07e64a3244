#include "profile.h"

#include <algorithm>
#include <iterator>

#include "result_codes.h"

namespace simulated {

namespace {

struct Setting {
    std::string_view name;
    int highest;
    int factory;
};

// E, Q, V, X, &C, &D and flow control are obeyed. The others are those of well-known families of modems:
// taken, kept and shown, since to a simulated line they make no difference.
constexpr Setting settings[] = {
    {"B", 16, 1},    {"C", 1, 1},   {"E", 1, 1},   {"L", 3, 1},   {"M", 3, 1},    {"N", 5, 1},
    {"P", 0, 0},     {"Q", 1, 0},   {"T", 0, 0},   {"V", 1, 1},   {"W", 2, 0},    {"X", highestLevel, 4},
    {"Y", 1, 0},     {"&A", 3, 1},  {"&B", 1, 1},  {"&C", 1, 1},  {"&D", 3, 2},   {"&G", 2, 0},
    {"&H", 3, 1},    {"&I", 5, 0},  {"&J", 1, 0},  {"&K", 6, 3},  {"&L", 1, 0},   {"&M", 5, 0},
    {"&N", 16, 0},   {"&O", 1, 0},  {"&P", 3, 0},  {"&Q", 9, 5},  {"&R", 2, 1},   {"&S", 2, 0},
    {"&T", 9, 0},    {"&U", 16, 0}, {"&X", 2, 0},  {"&Y", 1, 0},  {"%A", 255, 0}, {"%B", 16, 0},
    {"%C", 3, 3},    {"%E", 3, 2},  {"%G", 1, 1},  {"%M", 3, 0},  {"\\A", 3, 1},  {"\\B", 9, 3},
    {"\\C", 2, 0},   {"\\G", 1, 0}, {"\\J", 1, 0}, {"\\K", 5, 5}, {"\\N", 7, 3},  {"\\Q", 7, 3},
    {"\\T", 255, 0}, {"\\V", 4, 1}, {"\\X", 1, 0},
};

struct Extended {
    std::string_view name;
    std::string_view factory;
    std::string_view values;
};

// Of these only flow control is obeyed, and the class of service tells the truth: a program that was told OK
// would send a fax.
constexpr Extended extendedCommands[] = {
    {"DR", "0", "(0,1)"},
    {"DS", "3,0,2048,32", "(0-3),(0,1),(512-2048),(6-250)"},
    {"EB", "0,0,30", "(0-2),(0,1),(0-254)"},
    {"EFCS", "1", "(0-2)"},
    {"ER", "0", "(0,1)"},
    {"ES", "3,0,2", "(0-4),(0-4),(0-9)"},
    {"ESR", "1", "(0-2)"},
    {"ETBM", "1,1,20", "(0-2),(0-2),(0-30)"},
    {"FCLASS", "0", "0"},
    {"ICF", "3,3", "(0-6),(0-3)"},
    {"IFC", "2,2", "(0-3),(0-2)"},
    {"ILRR", "0", "(0,1)"},
    {"IPR", "0", "(0,300,1200,2400,4800,9600,19200,38400,57600,115200)"},
    {"MR", "0", "(0,1)"},
    {"MS", "V34,1,300,33600", "(V21,V22,V22B,V32,V32B,V34),(0,1),(300-33600),(300-33600)"},
    {"VCID", "0", "(0-2)"},
};

const Extended* extendedCommand(std::string_view name) {
    const auto* const known = std::find_if(std::begin(extendedCommands), std::end(extendedCommands),
                                           [name](const Extended& entry) { return entry.name == name; });
    return known == std::end(extendedCommands) ? nullptr : known;
}

// What each family calls XON/XOFF.
struct FlowCommand {
    std::string_view name;
    int software;
};
constexpr FlowCommand flowCommands[] = {{"&K", 4}, {"\\Q", 1}};

} // namespace

Profile::Profile() {
    for (const Setting& setting : simulated::settings)
        settings.emplace(setting.name, setting.factory);
    for (const Extended& entry : extendedCommands)
        extended.emplace(entry.name, entry.factory);
}

bool Profile::set(std::string_view name, int value) {
    const auto* const known = std::find_if(std::begin(simulated::settings), std::end(simulated::settings),
                                           [name](const Setting& setting) { return setting.name == name; });
    if (known == std::end(simulated::settings) || value < 0 || value > known->highest)
        return false;
    settings.find(name)->second = value;
    for (const FlowCommand& command : flowCommands)
        if (command.name == name)
            flow_ = value == command.software ? Flow::software : Flow::other;
    return true;
}

bool Profile::setExtended(std::string_view name, std::string_view value) {
    const Extended* const known = extendedCommand(name);
    if (known == nullptr)
        return false;
    if (value.empty())
        value = known->factory;
    if (name == "FCLASS" && value != known->values)
        return false;
    extended.insert_or_assign(std::string(name), std::string(value));
    if (name == "IFC")
        flow_ = value.starts_with('1') ? Flow::software : Flow::other;
    return true;
}

std::string_view extendedValues(std::string_view name) {
    const Extended* const known = extendedCommand(name);
    return known == nullptr ? std::string_view() : known->values;
}

std::string Profile::show() const {
    std::string text;
    for (const auto& [name, value] : settings)
        text.append(name).append(std::to_string(value)).append(" ");
    for (const auto& [name, value] : extended)
        text.append("+").append(name).append("=").append(value).append(" ");
    for (int number = 0; number <= 12; ++number)
        text.append("S")
            .append(std::to_string(number))
            .append(":")
            .append(registers.show(number))
            .append(" ");
    text.pop_back();
    return text;
}

} // namespace simulated
