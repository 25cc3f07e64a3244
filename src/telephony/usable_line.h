// Whether a device's line can be used: the probe that fills the table, and the check before each use.
#pragma once

#include <cstdint>

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

enum class Probe { usable, unusable, unreachable };
/// Looks at the device during the initialisation. Its entry has a name afterwards in any case.
Probe probe(int32_t index);

/// What a check is for.
enum class Purpose { placingCalls, answeringCalls };
/// 0 the line can be used; else what is in the way: 1 version, capabilities, line or address; 2 bearer
/// modes; 3 media modes; 4 it makes no calls; 5 in use; 7 no communications identifier.
int32_t verifyUsableLine(TelephonyDevice& device, Purpose purpose);

} // namespace brisolt::telephony
