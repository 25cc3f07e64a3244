#include "s_registers.h"

namespace simulated {

namespace {

struct Factory {
    int number;
    uint8_t value;
};

constexpr Factory factory[] = {
    {escapeCharacter, '+'}, {endCharacter, '\r'}, {lineFeedCharacter, '\n'}, {backspaceCharacter, '\b'},
    {blindDialWait, 2},     {carrierWait, 50},    {commaPause, 2},           {9, 6},
    {carrierLossTime, 14},  {toneTime, 95},       {guardTime, 50},           {dtrTime, 5},
    {negotiation, 7},       {compression, 138},   {negotiationFeatures, 7},
};

} // namespace

SRegisters::SRegisters() {
    for (const Factory& entry : factory)
        values_[static_cast<std::size_t>(entry.number)] = entry.value;
}

bool SRegisters::set(int number, int value) {
    if (number < 0 || number > 255 || value < 0 || value > 255)
        return false;
    values_[static_cast<std::size_t>(number)] = static_cast<uint8_t>(value);
    return true;
}

std::string SRegisters::show(int number) const {
    if (number < 0 || number > 255)
        return {};
    const std::string digits = std::to_string(values_[static_cast<std::size_t>(number)]);
    return std::string(3 - digits.size(), '0') + digits;
}

} // namespace simulated
