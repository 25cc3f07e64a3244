// The report of where two files differ, in the port's debug log.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// 0 done; -1 the first file or the report cannot be opened, -2 the second file, -3 a read failed.
int32_t reportDifferences(Port& port, const char* firstName, const char* secondName, const char* report);

} // namespace brisolt
