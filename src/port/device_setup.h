// The steps by which an open sets its device up. Each gives 0 or the open's failure code.
#pragma once

#include <cstdint>

#include "port/open_close.h"
#include "port/port_defaults.h"

namespace brisolt {

/// Device properties, one trace line each. 0; -26 when an adopted device's cannot be read.
int32_t readProperties(Port& port, Opened opened, ComHostProperties& properties) noexcept;
/// Event mask, queues and time-outs.
int32_t setUpQueues(Port& port, Opened opened) noexcept;
/// Framing and flow of the line.
int32_t setUpLine(Port& port, const OpenArguments& arguments, Opened opened,
                  const ComHostProperties& properties) noexcept;
/// The limits, special characters and flags that a port starts with; binary and parity are left alone.
void setStartFlags(ComHostLineState& state, Opened opened, const DeviceOptions& options = {}) noexcept;
/// DTR and RTS in the flags of a line state as the path asks for them; `found` are those before.
void applyLineStart(uint32_t& flags, uint32_t found, const DeviceOptions& options) noexcept;
/// The last touches: empty queues, lines raised, no events.
void startLine(Port& port) noexcept;

/// More than 3 % off: the far end would not understand.
constexpr bool rateIsOff(uint32_t wanted, uint32_t real) noexcept {
    const int64_t difference = int64_t{wanted} - int64_t{real};
    return (difference < 0 ? -difference : difference) * 100 > int64_t{wanted} * 3;
}

inline constexpr int32_t startMaxWriteChars = 1024;

inline constexpr uint32_t purgeHeld = COM_HOST_PURGE_RX | COM_HOST_PURGE_TX;
inline constexpr uint32_t purgeAll = purgeHeld | COM_HOST_PURGE_RX_ABORT | COM_HOST_PURGE_TX_ABORT;

} // namespace brisolt
