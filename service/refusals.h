// The reasons that only the service has for refusing a call, beside those in service_records.h.
#pragma once

#include "telephony/service_records.h"

namespace brisolt::service::result {

inline constexpr int32_t badDevice = code(0x02);
inline constexpr int32_t callUnavailable = code(0x05); ///< the line has a call already
inline constexpr int32_t badNumber = code(0x10);       ///< a dial string that no modem should get
inline constexpr int32_t badAddress = code(0x11);
inline constexpr int32_t badApplication = code(0x14);
inline constexpr int32_t badBearer = code(0x16);
inline constexpr int32_t badCall = code(0x18);
inline constexpr int32_t badSelect = code(0x1B);
inline constexpr int32_t wrongCallState = code(0x1C);
inline constexpr int32_t badClass = code(0x23);
inline constexpr int32_t badLine = code(0x2B);
inline constexpr int32_t badMedia = code(0x2F);
inline constexpr int32_t badParameter = code(0x32);
inline constexpr int32_t nullPointer = code(0x35);
inline constexpr int32_t badPrivileges = code(0x36);
inline constexpr int32_t notOwner = code(0x46);

} // namespace brisolt::service::result
