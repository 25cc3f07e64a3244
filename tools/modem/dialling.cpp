#include "dialling.h"

#include <cstdlib>

#include "exchange.h"

namespace simulated {

namespace {

constexpr Milliseconds flash{500}, secondTone{1000};

/// Ten pulses a second, as many as the digit, and a rest.
Milliseconds pulseTime(char digit) {
    const int pulses = digit == '0' ? 10 : digit - '0';
    return Milliseconds(pulses * 100 + 700);
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

} // namespace

DialPlan planDialling(std::string_view text, bool tone, const SRegisters& registers) {
    DialPlan plan;
    if (const std::size_t place = text.find("S="); place != std::string_view::npos) {
        plan.stored = std::atoi(std::string(text.substr(place + 2)).c_str());
        text = text.substr(0, place);
    }
    const Milliseconds toneLength(2 * registers[toneTime]);
    for (const char character : text) {
        switch (character) {
        case 'T': tone = true; break;
        case 'P': tone = false; break;
        case ',': plan.duration += std::chrono::seconds(registers[commaPause]); break;
        case '!': plan.duration += flash; break;
        case 'W':
            if (plan.number.empty())
                plan.waitsForTone = true;
            else
                plan.duration += secondTone;
            break;
        case '@': plan.quietAnswer = true; break;
        case ';': plan.staysCommanded = true; break;
        case 'L': plan.redials = true; break;
        default:
            // Brackets, dashes and the like are for people.
            if (const std::string digit = Exchange::digits({&character, 1}); !digit.empty()) {
                plan.number += digit;
                plan.duration += !tone && isDigit(character) ? pulseTime(character) : toneLength;
            }
        }
    }
    return plan;
}

} // namespace simulated
