// Receiving a text file until its end character, a quiet line or the user ends it: all at once, or step by
// step.
#pragma once

#include <cstdint>

#include "transfer/text_transfer.h"

namespace brisolt {

/// ComRecvA.
int32_t receiveFile(Port& port, const char* name, int32_t escape, int32_t endChar, int32_t seconds);

/// Creates the file of a transfer that has just been entered. False: the transfer is out again.
bool startReceive(Port& port, TextTransfer& transfer, const char* name, int32_t endChar);
/// CRecvAPkt, by whoever has the turn.
int32_t receiveStep(Port& port, TextTransfer& transfer);

/// ComRead_ASCII: what waits, of it the text characters only. The buffer holds `count` bytes and a
/// terminator.
int32_t readText(Port& port, char* buffer, int32_t count);

} // namespace brisolt
