// A file sent or received over a link: text by the library's own transfer, the rest by the programs of lrzsz.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "link.h"

struct TransferOptions {
    std::string protocol = "zmodem"; ///< text, xmodem, ymodem, zmodem
    std::string file;
    int32_t charDelay = 0;   ///< text: milliseconds after each character
    int32_t lineDelay = 0;   ///< text: milliseconds after each line
    bool addReturns = false; ///< text: a carriage return in front of each line feed
    int32_t timeout = 60;    ///< seconds in which nothing moves
    bool quietEnds = false;  ///< text: that is the end of the file, and not a failure
};

/// What a transfer asks of its user's side.
struct TransferUser {
    std::function<void(uint64_t done, uint64_t total)> progress; ///< total 0: not known
    int input = -1;                                              ///< a descriptor that is looked at meanwhile
    std::function<bool()> giveUp;                                ///< asked when it is readable
};

/// Before the device is opened: throws Failure for a file that cannot be read or a program that is missing.
void requireSending(const TransferOptions& options);
void requireReceiving(const TransferOptions& options);

/// Returns when the last bit of the file has left. Throws Failure.
void sendFile(Link& link, const TransferOptions& options, const TransferUser& user);
/// Receives to `file`, into it when it is a folder, which then takes every file under the name it is sent by.
/// Nothing of a transfer that fails is left. Returns the files. Throws Failure.
std::vector<std::string> receiveFile(Link& link, const TransferOptions& options, const TransferUser& user);
