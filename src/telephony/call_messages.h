// What the service tells: its messages, and what is done about those of a call.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// A message of the service: the handle that it is about, and its three parameters.
struct Report {
    uint32_t handle, message, p1, p2, p3;
};

/// Message callState.
void handleCallState(const Report& report);

/// The callback that the library registers.
extern "C" void lineCallbackFunc(uint32_t device, uint32_t message, uintptr_t instance, uintptr_t p1,
                                 uintptr_t p2, uintptr_t p3);

} // namespace brisolt::telephony
