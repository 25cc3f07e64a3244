// Sending a text file as it stands, shaped by the port's settings for line ends: all at once, or step by
// step.
#pragma once

#include <cstdint>

#include "transfer/text_transfer.h"

namespace brisolt {

/// ComSendA.
int32_t sendFile(Port& port, const char* name);

/// Opens the file of a transfer that has just been entered. False: the transfer is out again.
bool startSend(Port& port, TextTransfer& transfer, const char* name, int32_t chunkSize);
/// CSendAPkt, by whoever has the turn.
int32_t sendStep(Port& port, TextTransfer& transfer);

} // namespace brisolt
