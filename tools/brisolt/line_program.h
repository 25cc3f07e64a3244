// A program that speaks over a link through its standard input and output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "file_transfer.h"
#include "link.h"

/// The path of the first of the programs that is there; throws Failure, naming the package.
std::string programPath(const std::vector<std::string>& names);

struct LineProgram {
    std::vector<std::string> command; ///< its path first
    std::string folder;               ///< where it runs; empty: here
    uint64_t total = 0;               ///< bytes expected, 0 not known
    double payload = 1;               ///< the part of the bytes on the line that belongs to the file
    bool sending = false;
};

/// Runs it until it ends and all it has written has left. Throws Failure with its own last words when it fails.
void runOnLink(Link& link, const LineProgram& program, const TransferOptions& options,
               const TransferUser& user);
