// Text transfers whose steps are made by a thread of their own.
#pragma once

#include <cstdint>

#include "transfer/text_transfer.h"

namespace brisolt {

/// ComSA_Thread and ComRA_Thread.
int32_t transferOnThread(Port& port, TextTransfer::Direction direction, const char* name);
/// ComA_Thread_Abort: the thread ends before its next step.
void stopTransferThread(Port& port);

} // namespace brisolt
