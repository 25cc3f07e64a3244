// Placing calls: from the number to the open port, on the caller's thread or on one of its own.
#pragma once

#include <cstdint>

#include "telephony/dialling.h"
#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// What a caller asks for, as given; any of the three may be null.
struct CallRequest {
    const char* deviceName;
    const char* phoneNumber;
    const char* dialMode;
};

/// ComTAPI_Connect.
int32_t connect(const CallRequest& request);

// ---- for the connect thread
/// Logs the request and finds its device. 0, or the code of the refusal.
int32_t lookUp(const CallRequest& request, TelephonyDevice*& device);
/// The same for a device that nobody uses and a number that can be dialled.
int32_t lookUpFree(const CallRequest& request, TelephonyDevice*& device, DialString& toDial);
int32_t refuseInUse(TelephonyDevice& device);
int32_t refuseUnusable(const TelephonyDevice& device);
/// Checks the line, dials and waits for the port. The port's number, or a failure; the use is over unless the
/// call is connected.
int32_t placeCall(const Use& use, const DialString& toDial);

} // namespace brisolt::telephony
