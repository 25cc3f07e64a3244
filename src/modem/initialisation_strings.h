// The command strings that an initialisation takes from the modem database.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt::modem {

/// Looks the modem up and makes the strings of its record the port's, but for those that the flags of the
/// port's sequence keep. inProgress; -1 the database is not readable; -2 the modem is not in it.
int32_t takeStrings(Port& port, const char* databaseFile, const char* modemName);

} // namespace brisolt::modem
