// Flow modes and the control lines DTR and RTS.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

inline constexpr int32_t flowModes = 6;
/// The flags of a line state with another flow mode; lines that no handshake moves stay as `outputs` says
/// (COM_HOST_MODEM_... bits).
uint32_t withFlow(uint32_t flags, int32_t mode, uint32_t outputs) noexcept;
/// What a port's record calls a flow mode.
int32_t xonXoffCode(int32_t mode) noexcept;

int32_t setFlow(Port& port, int32_t mode);
/// The same, DTR and RTS left as they are where no handshake moves them.
void setQuietFlow(Port& port, int32_t mode) noexcept;
int32_t setDtr(Port& port);
int32_t clearDtr(Port& port);
int32_t setRts(Port& port);
int32_t clearRts(Port& port);

} // namespace brisolt
