// Writing to an end of a null modem, at once or until the line has taken the bytes.
#pragma once

#include <cstdint>
#include <span>

#include "device/null_modem_end.h"

namespace brisolt {

/// Takes what fits now. Bytes taken.
int32_t nullModemWriteNow(NullModemEnd& end, std::span<const uint8_t> bytes) noexcept;

/// Waits until the bytes have left, as long as the end's time-outs allow; complete writes of several
/// threads follow one another. Bytes that have left; the others are taken back. `error` says why
/// there are others: that of a time-out when the time was over. Untouched when there are none.
int32_t nullModemWriteComplete(NullModemEnd& end, std::span<const uint8_t> bytes, int32_t& error) noexcept;

/// Waits until everything written has left. 1, or a negative host error number.
int32_t nullModemFlush(NullModemEnd& end) noexcept;

} // namespace brisolt
