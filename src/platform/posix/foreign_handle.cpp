#include <unistd.h>

#include "platform/device.h"

namespace brisolt::drivers {

void closeForeignHandle(int32_t handle) noexcept {
    if (closeHandle(handle) < 0)
        ::close(handle);
}

} // namespace brisolt::drivers
