// The single modem commands: strings of the port's modem parameters, sent as they are at that moment. None of
// them reads what the modem answers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "port/port.h"

namespace brisolt::modem {

/// One of the port's command strings: where it stands in the record.
struct Command {
    char* (*text)(PortRecord& record);
    std::size_t size; ///< of the field, terminator included
};

template <auto Field>
inline constexpr Command command{[](PortRecord& record) -> char* { return record.*Field; },
                                 sizeof(static_cast<PortRecord*>(nullptr)->*Field)};

/// A copy of a command string.
struct CommandText {
    char text[sizeof(PortRecord::initStr)];
};
CommandText textOf(Port& port, const Command& command) noexcept;

/// Makes a text the port's command string, cut to its field.
void setText(Port& port, const Command& command, const char* text) noexcept;

/// Sends a command string. ComPuts's result.
int32_t send(Port& port, const Command& command);

/// ComDial: 1 carrier (or no wait for it), 0 escaped, -1 time over, cancelled or closed.
int32_t dial(Port& port, const char* number);
/// ComDisc.
int32_t hangUp(Port& port);
/// ComRing.
int32_t ringing(Port& port);

} // namespace brisolt::modem
