// Parameter records in profile files: what a record's keys are called, what they mean when they are absent,
// and what stands for values that are none. These work on the caller's record and touch no port.
#pragma once

#include <string_view>

#include "brisolt/parameters.h"

namespace brisolt::profile {

/// False when a value is refused; the record is then as it was.
bool load(const char* file, std::string_view section, ComPortParms& parms);
bool load(const char* file, std::string_view section, ComModemParms& parms);

/// Writes all keys at once; those that may be left out only when they differ from what an absent key means,
/// unless `writeAll`. False when the file cannot be written; it is then as it was. Of a port only the last
/// three keys are not worth a failure.
bool store(const char* file, std::string_view section, const ComPortParms& parms, bool writeAll);
bool store(const char* file, std::string_view section, const ComModemParms& parms, bool writeAll);

} // namespace brisolt::profile
