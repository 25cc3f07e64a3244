// A transfer that a user of the terminal asks for by keys, with a bar that shows how far it is.
#pragma once

#include <functional>
#include <string>

#include "file_transfer.h"

/// What he asks for, by the first letter of the protocol. Throws Failure for a protocol, file or program that is
/// not there.
TransferOptions typedTransfer(bool sending, const std::string& file, const std::string& protocol);

/// Runs it; `giveUp` is asked when a key is pressed. How much it was and how long it took. Throws Failure.
std::string runTypedTransfer(Link& link, bool sending, const TransferOptions& request,
                             const std::function<bool()>& giveUp);
