// Which process has a device, as far as the host lets us see.
#pragma once

#include <cstdint>
#include <string>

namespace brisolt::serial {

struct Holder {
    int32_t process = 0; ///< 0: none is seen
    std::string name;
};
/// Of the device that a path leads to. Nothing is opened.
Holder holderOf(const std::string& path);

} // namespace brisolt::serial
