// The table of telephony devices, and whose turn it is to use one.
//
// A device is used by one connect, auto-answer or call at a time. Each use has a number; whoever works for it
// (the caller, a connect thread, whichever thread handles the service's messages) does so through a Use,
// which writes nothing any more once the device has been disconnected or is used by somebody else.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/mutex.h"
#include "port/shared.h"

namespace brisolt::telephony {

inline constexpr int32_t deviceLimit = 75;
inline constexpr int32_t firstDevicePort = 130;
inline constexpr std::size_t lineNameSize = 75;

/// Values of connectStatus.
namespace connectStatus {
inline constexpr int32_t underWay = 101, connected = 100;
}
/// Values of autoAnswerState.
namespace autoAnswer {
inline constexpr uint32_t off = 0, armed = 101, ringing = 102, settled = 103, answering = 104,
                          connected = 105;
}
/// Values of failCode, told to callers.
namespace fail {
inline constexpr int32_t version = -10, capabilities = -11, noMediaModes = -12, noMakeCall = -13,
                         lineInUse = -14, lineOpen = -15, addressStatus = -16, dialling = -17,
                         callParameters = -18, makeCall = -19, waiting = -20, monitorPrivilege = -21,
                         ownerPrivilege = -22, unknownPrivilege = -23, busy = -24, noAnswer = -25,
                         unavailable = -26, noDialTone = -27, cancelled = -29;
}

struct TelephonyDevice {
    Shared<uint32_t> commHandle;
    Shared<int32_t> connectStatus; ///< of the last threaded connect
    Shared<int32_t> devicePort;
    Shared<uint32_t> deviceId;
    Shared<uint32_t> cancelRequested;
    Shared<uint32_t> callHandle;
    Shared<uint32_t> lineHandle;
    char lineName[lineNameSize]; ///< this and the next two under mutex
    char dialMode[5];
    char phoneNumber[30]; ///< for those who look: the start of a longer number
    Shared<uint32_t> connected;
    Shared<uint32_t> connecting;
    Shared<uint32_t> callState;
    Shared<uint32_t> callStateChanged;
    Shared<int32_t> failCode;
    Shared<uint32_t> bearerMode;
    Shared<uint32_t> autoAnswerArmed;
    Shared<uint32_t> autoAnswerState;
    Shared<uint32_t> ringsDesired;
    Shared<uint32_t> threadHandle;
    Shared<uint32_t> apiVersion;
    Shared<uint32_t> offeredCall;
    Shared<uint32_t> hangupInProgress;

    Shared<uint32_t> connectResultWanted;
    Shared<uint32_t> waitEnded;      ///< a wait for this device has ended: one around it need not go on
    Shared<uint32_t> threadUnderWay; ///< a connect thread has yet to tell its result
    Shared<uint32_t> openingPort;    ///< a connected report is being handled
    Shared<uint32_t> portOpened;     ///< by the present use
    Shared<uint32_t> dialThread;     ///< the thread that is inside the make-call request; 0 none
    Shared<uint32_t> hangupThread;   ///< the thread of the hang-up in progress
    Shared<int32_t> handling;        ///< threads that are inside a message of this device
    Shared<uint32_t> use;            ///< number of the present use; written under mutex
    Mutex mutex;                     ///< for what must change together; nothing is called while it is held
};

/// All entries, and those that the last initialisation found.
std::span<TelephonyDevice, deviceLimit> allDevices() noexcept;
std::span<TelephonyDevice> knownDevices() noexcept;
inline int32_t indexOf(const TelephonyDevice& device) noexcept {
    return static_cast<int32_t>(&device - allDevices().data());
}
/// The known device of that name, compared byte by byte; null when there is none, or no name is given.
TelephonyDevice* findDevice(const char* name) noexcept;

int32_t deviceCount() noexcept;
void setDeviceCount(int64_t number) noexcept;
/// Every entry as it was before the first initialisation; whoever still uses one has lost it.
void clearTable() noexcept;

/// 1, or 0 and an empty text when the entry has none. The buffer holds lineNameSize bytes.
int32_t copyLineName(TelephonyDevice& device, char* buffer) noexcept;
/// At most `length` bytes of the text, up to its end.
void setLineName(TelephonyDevice& device, const char* text, std::size_t length) noexcept;

enum class UseKind {
    connect,      ///< on the caller's thread
    startConnect, ///< by a connect thread, which takes it over
    autoAnswer,
};

class Use {
public:
    /// The present use, whoever's it is.
    explicit Use(TelephonyDevice& device) noexcept : device_(&device), number_(device.use) {}

    TelephonyDevice& device() const noexcept { return *device_; }
    int32_t index() const noexcept { return indexOf(*device_); }
    bool current() const noexcept { return device_->use == number_; }

    /// The line that is open for this use; 0 when there is none, or the use is over.
    uint32_t line() const noexcept {
        uint32_t line = device_->lineHandle;
        return current() ? line : 0;
    }

    /// Calls change() unless the use is over. Whether it was called.
    template <class Change> bool change(Change change) const {
        MutexLock lock(device_->mutex);
        if (!current())
            return false;
        change();
        return true;
    }
    /// The cause of a failure: those that name a fault of the line replace what is there, the others count
    /// only as the first.
    void fail(int32_t code) const noexcept;
    void failInAnyCase(int32_t code) const noexcept;

private:
    friend std::optional<Use> begin(TelephonyDevice& device, UseKind kind) noexcept;
    TelephonyDevice* device_;
    uint32_t number_;
};

bool inUse(const TelephonyDevice& device) noexcept;
/// Whether the cause of a failure is a fault of the line itself.
bool namesLineFault(int32_t code) noexcept;
/// Takes the device for a new use and resets its entry; nothing when it is in use.
std::optional<Use> begin(TelephonyDevice& device, UseKind kind) noexcept;
/// The connect thread takes over: what was said to its connect since it was started stays said.
bool takeOver(const Use& use) noexcept;
/// The call is taken out of the entry, for whoever releases it: it is over. With the mutex held.
uint32_t takeCall(TelephonyDevice& device) noexcept;
/// The same for a call that was only offered.
uint32_t takeOffer(TelephonyDevice& device) noexcept;
void noteOver(uint32_t call) noexcept;
/// Whether the call is one of the last that ended so: what is still said about it is for nobody.
bool isOver(uint32_t call) noexcept;
struct Handles {
    uint32_t call, line;
};
/// The device is nobody's; its use is over. The handles that it held.
Handles endUse(TelephonyDevice& device) noexcept;
/// The use has failed: the device may be tried again, once a connect thread has told its result.
void giveUp(const Use& use) noexcept;

/// Wakes whoever waits for news of any device.
void wakeWaits() noexcept;

} // namespace brisolt::telephony
