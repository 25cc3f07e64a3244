// What crosses between the library and a telephony service: the entry points by their types, the records
// with their byte offsets, and the values in them. A service is a shared object that exports the entry points
// with C linkage; the comment above each type is the name. Either side includes this file; it needs nothing
// else of the library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace brisolt::service {

inline constexpr const char* moduleName = "TAPI32.DLL";
inline constexpr const char* modemClass =
    "comm/datamodem"; ///< of the identifiers and configurations asked for

inline constexpr uint32_t lowestVersion = 0x10003;
inline constexpr uint32_t highestVersion = 0x20002;

/// Results: 0 success, positive an accepted asynchronous request, negative one of these or another code.
namespace result {
inline constexpr int32_t success = 0;
constexpr int32_t code(uint32_t low) {
    return static_cast<int32_t>(0x80000000U | low);
}
inline constexpr int32_t lineInUse = code(0x01);
inline constexpr int32_t incompatibleVersion = code(0x0C);
inline constexpr int32_t callAgain1 = code(0x0E); ///< these three: the configuration cannot be read just now
inline constexpr int32_t callAgain2 = code(0x1E);
inline constexpr int32_t callAgain3 = code(0x2D);
inline constexpr int32_t noDevices = code(0x42);
inline constexpr int32_t componentMissing = code(0x43);
inline constexpr int32_t outOfMemory = code(0x44);
inline constexpr int32_t operationFailed = code(0x48);
inline constexpr int32_t unavailable = code(0x49);
inline constexpr int32_t resourceUnavailable = code(0x4B);
inline constexpr int32_t recordTooSmall = code(0x4D); ///< for the fixed part of the record
inline constexpr int32_t reinitialising = code(0x52);
inline constexpr int32_t driverTwice = code(0x56);
} // namespace result

/// Bit sets.
namespace bearer {
inline constexpr uint32_t voice = 1, multiUse = 4, data = 8;
}
namespace media {
inline constexpr uint32_t dataModem = 16;
}
namespace feature {
inline constexpr uint32_t lineMakeCall = 8;    ///< of DeviceCapabilities::lineFeatures
inline constexpr uint32_t addressMakeCall = 2; ///< of AddressStatus::addressFeatures
} // namespace feature
namespace privilege {
inline constexpr uint32_t none = 1, monitor = 2, owner = 4;
}
namespace statusMessages {
inline constexpr uint32_t allLine = 0xBFFFFF, allAddress = 0x1FF;
}

/// Format of a string in a record, and what an identifier is asked for.
namespace stringFormat {
inline constexpr uint32_t plain = 1, binary = 4;
}
namespace select {
inline constexpr uint32_t line = 1, address = 2, call = 4;
}
namespace addressMode {
inline constexpr uint32_t byIdentifier = 1;
}
namespace callFlag {
inline constexpr uint32_t idle = 2; ///< the call is to start on an idle line
}

/// Messages to the callback.
namespace message {
inline constexpr uint32_t callState = 2;       ///< handle call, p1 a callState, p2 its detail, p3 a privilege
inline constexpr uint32_t lineClosed = 3;      ///< handle line
inline constexpr uint32_t lineDeviceState = 8; ///< handle line, p1 a deviceState, p2 and p3 its details
inline constexpr uint32_t reply = 12;          ///< p1 the request, p2 its result
inline constexpr uint32_t lineCreated = 19;
} // namespace message

namespace callState {
inline constexpr uint32_t idle = 1, offering = 2, accepted = 4, dialTone = 8, dialling = 16, ringBack = 32,
                          busy = 64, specialInformation = 128, connected = 256, proceeding = 512,
                          disconnected = 16384;
}
/// Details of callState::disconnected.
namespace disconnectedBy {
inline constexpr uint32_t normal = 1, unknown = 2, reject = 4, pickup = 8, forwarded = 16, busy = 32,
                          noAnswer = 64, badAddress = 128, unreachable = 256, congestion = 512,
                          incompatible = 1024, unavailable = 2048, noDialTone = 4096;
}
namespace deviceState {
inline constexpr uint32_t ringing = 2; ///< p3 counts the rings
inline constexpr uint32_t disconnected = 8, outOfService = 128, maintenance = 256, reinitialise = 0x40000,
                          capabilitiesChanged = 0x400000, removed = 0x1000000;
} // namespace deviceState

// ---- Records: 32-bit words, little-endian

/// How every record begins that the service fills. The caller sets totalSize to what its buffer holds; the
/// service sets the others. A buffer too small for the variable part gets the fixed part and result 0.
struct Sizes {
    uint32_t total, needed, used;
};

struct DeviceCapabilities {
    Sizes sizes;
    uint32_t unread1[4];
    uint32_t permanentLineId;
    uint32_t nameSize;   ///< bytes, terminator included; 0 no name
    uint32_t nameOffset; ///< from the start of the record
    uint32_t nameFormat; ///< a stringFormat
    uint32_t addressModes;
    uint32_t addresses;
    uint32_t bearerModes;
    uint32_t maxRate;
    uint32_t mediaModes;
    uint32_t unread2[43];
    uint32_t lineFeatures;
    uint32_t unread3[3];
};
static_assert(offsetof(DeviceCapabilities, permanentLineId) == 28);
static_assert(offsetof(DeviceCapabilities, nameSize) == 32);
static_assert(offsetof(DeviceCapabilities, nameOffset) == 36);
static_assert(offsetof(DeviceCapabilities, nameFormat) == 40);
static_assert(offsetof(DeviceCapabilities, addressModes) == 44);
static_assert(offsetof(DeviceCapabilities, addresses) == 48);
static_assert(offsetof(DeviceCapabilities, bearerModes) == 52);
static_assert(offsetof(DeviceCapabilities, maxRate) == 56);
static_assert(offsetof(DeviceCapabilities, mediaModes) == 60);
static_assert(offsetof(DeviceCapabilities, lineFeatures) == 236);
static_assert(sizeof(DeviceCapabilities) == 252);

struct AddressCapabilities {
    Sizes sizes;
    uint32_t lineDeviceId;
    uint32_t unread[53];
};
static_assert(offsetof(AddressCapabilities, lineDeviceId) == 12);
static_assert(sizeof(AddressCapabilities) == 228);

struct AddressStatus {
    Sizes sizes;
    uint32_t unread1[4];
    uint32_t addressFeatures;
    uint32_t unread2[8];
};
static_assert(offsetof(AddressStatus, addressFeatures) == 28);
static_assert(sizeof(AddressStatus) == 64);

struct CallStatus {
    Sizes sizes;
    uint32_t callState;
    uint32_t callStateDetail;
    uint32_t callPrivilege;
    uint32_t unread[8];
};
static_assert(offsetof(CallStatus, callState) == 12);
static_assert(offsetof(CallStatus, callPrivilege) == 20);
static_assert(sizeof(CallStatus) == 56);

/// The answer of lineGetIDA. For a call's modemClass the string data begins with the communications handle.
struct VariableString {
    Sizes sizes;
    uint32_t stringFormat;
    uint32_t stringSize;
    uint32_t stringOffset; ///< from the start of the record
};
static_assert(offsetof(VariableString, stringFormat) == 12);
static_assert(offsetof(VariableString, stringSize) == 16);
static_assert(offsetof(VariableString, stringOffset) == 20);
static_assert(sizeof(VariableString) == 24);

struct DialParameters {
    uint32_t dialPause, dialSpeed, digitDuration, waitForDialTone;
};

/// Filled by the library; the service reads it.
struct CallParameters {
    uint32_t totalSize;
    uint32_t bearerMode;
    uint32_t minRate, maxRate;
    uint32_t mediaMode;
    uint32_t callFlags;
    uint32_t addressMode;
    uint32_t addressId;
    DialParameters dialParameters;
    uint32_t originatingAddressSize, originatingAddressOffset;
    uint32_t displayableAddressSize, displayableAddressOffset;
    uint32_t unset[28];
};
static_assert(offsetof(CallParameters, bearerMode) == 4);
static_assert(offsetof(CallParameters, minRate) == 8);
static_assert(offsetof(CallParameters, mediaMode) == 16);
static_assert(offsetof(CallParameters, callFlags) == 20);
static_assert(offsetof(CallParameters, addressMode) == 24);
static_assert(offsetof(CallParameters, addressId) == 28);
static_assert(offsetof(CallParameters, dialParameters) == 32);
static_assert(offsetof(CallParameters, originatingAddressSize) == 48);
static_assert(offsetof(CallParameters, displayableAddressSize) == 56);
static_assert(offsetof(CallParameters, displayableAddressOffset) == 60);
static_assert(sizeof(CallParameters) == 176);

struct ExtensionId {
    uint32_t words[4];
};

// ---- Entry points

extern "C" {
using Callback = void (*)(uint32_t device, uint32_t message, uintptr_t instance, uintptr_t p1, uintptr_t p2,
                          uintptr_t p3);

/// The functions of the host interface under these names.
struct LibraryFunctions {
    std::size_t size; ///< of the record
    int32_t (*createSharedWindow)(void (*function)(void* context, int32_t window, uint32_t message,
                                                   uintptr_t first, intptr_t second),
                                  void* context);
    int32_t (*postMessage)(int32_t window, uint32_t message, uintptr_t first, intptr_t second);
    int32_t (*openDevice)(const char* path);
    int32_t (*closeDevice)(int32_t handle);
    int32_t (*getErrorText)(char* buffer, int32_t size);
};

/* lineInitialize */
using LineInitialize = int32_t(uint32_t* application, void* moduleInstance, Callback callback,
                               const char* applicationName, uint32_t* deviceCount);
/* lineShutdown */
using LineShutdown = int32_t(uint32_t application);
/* lineNegotiateAPIVersion */
using LineNegotiateVersion = int32_t(uint32_t application, uint32_t device, uint32_t low, uint32_t high,
                                     uint32_t* version, ExtensionId* extension);
/* lineGetDevCapsA */
using LineGetDeviceCapabilities = int32_t(uint32_t application, uint32_t device, uint32_t version,
                                          uint32_t extensionVersion, DeviceCapabilities* capabilities);
/* lineOpenA */
using LineOpen = int32_t(uint32_t application, uint32_t device, uint32_t* line, uint32_t version,
                         uint32_t extensionVersion, uintptr_t callbackInstance, uint32_t privileges,
                         uint32_t mediaModes, const CallParameters* parameters);
/* lineClose */
using LineClose = int32_t(uint32_t line);
/* lineSetStatusMessages */
using LineSetStatusMessages = int32_t(uint32_t line, uint32_t lineStates, uint32_t addressStates);
/* lineGetAddressStatusA */
using LineGetAddressStatus = int32_t(uint32_t line, uint32_t address, AddressStatus* status);
/* lineGetAddressCapsA */
using LineGetAddressCapabilities = int32_t(uint32_t application, uint32_t device, uint32_t address,
                                           uint32_t version, uint32_t extensionVersion,
                                           AddressCapabilities* capabilities);
/* lineGetIDA */
using LineGetId = int32_t(uint32_t line, uint32_t address, uint32_t call, uint32_t select,
                          VariableString* identifier, const char* deviceClass);
/* lineMakeCallA */
using LineMakeCall = int32_t(uint32_t line, uint32_t* call, const char* dialString, uint32_t countryCode,
                             const CallParameters* parameters);
/* lineAnswer */
using LineAnswer = int32_t(uint32_t call, const char* userData, uint32_t size);
/* lineDrop */
using LineDrop = int32_t(uint32_t call, const char* userData, uint32_t size);
/* brisoltPortOpen. A service need not have it. The program's port on the handle of a call is open: what comes is
 * read. A service that has it hands over a handle in which there are bytes of the other end alone, so the library
 * does not discard what is there at the open. */
using PortOpen = void(uint32_t call);
/* brisoltUseLibrary. A service need not have it. Called once, before all else, with functions of the library that has
 * loaded the service, to be used in the place of those that it may be linked to: a program can have the library
 * inside, and messages by way of another copy would never reach it. The record stays where it is; a later library's
 * is larger. */
using UseLibrary = void(const LibraryFunctions* functions);
/* lineDeallocateCall */
using LineDeallocateCall = int32_t(uint32_t call);
/* lineGetCallStatus */
using LineGetCallStatus = int32_t(uint32_t call, CallStatus* status);
/* lineSetDevConfigA */
using LineSetDeviceConfiguration = int32_t(uint32_t device, const void* configuration, uint32_t size,
                                           const char* deviceClass);
}

} // namespace brisolt::service
