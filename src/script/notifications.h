// Telling callers what has arrived on a port: any data, a character, a string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "port/port.h"

namespace brisolt {

/// Who is told: a window, a thread, or a function; 0 or null for nobody.
template <class Target> using TargetField = Shared<Target> PortRecord::*;

/// The target is to be told of any data.
template <class Target> int32_t notifyAny(Port& port, TargetField<Target> field, Target target) noexcept;
/// The target is to be told of a character. All three share the one that was set last.
template <class Target>
int32_t notifyOnChar(Port& port, TargetField<Target> field, Target target, uint8_t character) noexcept;

/// What a caller gets for a string that cannot be watched for.
struct ShortString {
    std::size_t least; ///< characters
    int32_t result;
};
/// The same of a string. One that is too short switches the target off when it is 0, and changes nothing
/// else.
template <class Target>
int32_t notifyOnString(Port& port, TargetField<Target> field, Target target, const char* string,
                       ShortString tooShort) noexcept;

/// Received bytes of value `from` become `to`; 0 in `enable` switches that off.
int32_t setReplacement(Port& port, int32_t enable, uint8_t from, uint8_t to) noexcept;

/// The port looks anew at who is to be told.
int32_t targetsChanged(Port& port) noexcept;
void setNotifyString(Port& port, const char* string) noexcept;

// ---- the same steps for each kind of target

template <class Target> int32_t notifyAny(Port& port, TargetField<Target> field, Target target) noexcept {
    port.record->*field = target;
    return targetsChanged(port);
}

template <class Target>
int32_t notifyOnChar(Port& port, TargetField<Target> field, Target target, uint8_t character) noexcept {
    port.record->notifyChar = character;
    return notifyAny(port, field, target);
}

template <class Target>
int32_t notifyOnString(Port& port, TargetField<Target> field, Target target, const char* string,
                       ShortString tooShort) noexcept {
    std::size_t length = string == nullptr ? 0 : std::strlen(string);
    if (length < tooShort.least) {
        if (target == Target{})
            notifyAny(port, field, target);
        return tooShort.result;
    }
    setNotifyString(port, string);
    return notifyAny(port, field, target);
}

} // namespace brisolt
