// The cables of which an end is open, by the paths that name them.
#pragma once

#include <cstdint>
#include <string_view>

#include "brisolt_host.h"
#include "device/null_modem_end.h"
#include "platform/device_options.h"

namespace brisolt {

/// What paths of one scheme lead to.
struct CableKind {
    std::string_view scheme; ///< with its colon
    std::string_view options;
    std::string_view taken; ///< why a further open is refused
    bool isLoop;            ///< one end, which is its own peer
};

/// The driver whose paths lead to cables of that kind, which lasts as long as the program.
ComHostDriver cableDriver(const CableKind& kind) noexcept;
/// As the driver's open, with the lines as the options have them.
int32_t openCable(const CableKind& kind, const char* path, const DeviceOptions& options, void** device,
                  int32_t* handle) noexcept;

/// What a path says, or what is wrong with it.
struct CableAddress {
    std::string_view name;
    NullModemStart start;
    std::string_view option; ///< which of them is wrong, if that is it
    std::string_view wrong;  ///< empty when nothing is
};
CableAddress cableAddress(const CableKind& kind, std::string_view path) noexcept;

/// A free end of the cable with that name, which is made if need be. 1, or a negative host error number; the
/// calling thread's error text then says why.
int32_t openCableEnd(const CableKind& kind, const CableAddress& address, NullModemEnd*& end) noexcept;
void closeCableEnd(NullModemEnd& end) noexcept;
/// False when the path is none of that kind, or no end of its cable is open.
bool ringCable(const CableKind& kind, std::string_view path, bool on) noexcept;

} // namespace brisolt
