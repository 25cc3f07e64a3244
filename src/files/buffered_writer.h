// The buffered writer of a port: bytes are collected in the port's record and go to the disk in large
// blocks, each tried again when it fails.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt::bufferedWriter {

/// Names the file. Whether it is there and may be written; with `fresh` it is a new one.
bool start(Port& port, const char* name, bool fresh);
/// False when there is no file or the bytes could not be written. A call from within the writing out itself
/// (out of a message that came meanwhile) is refused.
bool add(Port& port, std::span<const uint8_t> bytes);
bool finish(Port& port);

} // namespace brisolt::bufferedWriter
