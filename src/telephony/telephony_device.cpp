#include "telephony/telephony_device.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "platform/mutex.h"
#include "port/port_table.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

namespace {

TelephonyDevice table[deviceLimit];
std::atomic<int32_t> count{0};

/// Words about a call may be on their way while it is released; not so many calls end in that time.
std::array<std::atomic<uint32_t>, 128> over;
std::atomic<uint32_t> overCount{0};

/// What begins anew with every use; with the lock held.
void resetEntry(TelephonyDevice& device) noexcept {
    device.commHandle = 0;
    device.connected = 0;
    device.callHandle = 0;
    device.lineHandle = 0;
    device.offeredCall = 0;
    device.callState = 0;
    device.failCode = 0;
    device.autoAnswerArmed = 0;
    device.autoAnswerState = autoAnswer::off;
    device.portOpened = 0;
    device.openingPort = 0;
    device.dialThread = 0;
}

void clearEntry(TelephonyDevice& device) noexcept {
    MutexLock lock(device.mutex);
    device.use = device.use + 1;
    resetEntry(device);
    device.connectStatus = 0;
    device.devicePort = 0;
    device.deviceId = 0;
    device.cancelRequested = 0;
    device.connecting = 0;
    device.threadUnderWay = 0;
    device.callStateChanged = 0;
    device.bearerMode = 0;
    device.ringsDesired = 0;
    device.threadHandle = 0;
    device.apiVersion = 0;
    device.connectResultWanted = 0;
    device.lineName[0] = device.dialMode[0] = device.phoneNumber[0] = '\0';
}

} // namespace

std::span<TelephonyDevice, deviceLimit> allDevices() noexcept {
    return table;
}

std::span<TelephonyDevice> knownDevices() noexcept {
    auto known = static_cast<std::size_t>(std::clamp(deviceCount(), 0, deviceLimit));
    return allDevices().first(known);
}

TelephonyDevice* findDevice(const char* name) noexcept {
    if (name == nullptr || *name == '\0')
        return nullptr; // an entry without a name is nobody's to call
    for (TelephonyDevice& device : knownDevices()) {
        MutexLock lock(device.mutex);
        if (std::strcmp(device.lineName, name) == 0)
            return &device;
    }
    return nullptr;
}

int32_t deviceCount() noexcept {
    return count;
}

void setDeviceCount(int64_t number) noexcept {
    count = static_cast<int32_t>(std::clamp<int64_t>(number, 0, std::numeric_limits<int32_t>::max()));
}

void clearTable() noexcept {
    for (TelephonyDevice& device : allDevices())
        clearEntry(device);
    for (auto& ended : over)
        ended = 0;
    setDeviceCount(0);
}

int32_t copyLineName(TelephonyDevice& device, char* buffer) noexcept {
    MutexLock lock(device.mutex);
    std::memcpy(buffer, device.lineName, lineNameSize);
    return buffer[0] == '\0' ? 0 : 1;
}

void setLineName(TelephonyDevice& device, const char* text, std::size_t length) noexcept {
    MutexLock lock(device.mutex);
    std::size_t kept = strnlen(text, std::min(length, lineNameSize - 1));
    std::memset(device.lineName, 0, sizeof device.lineName);
    std::memcpy(device.lineName, text, kept);
}

bool namesLineFault(int32_t code) noexcept {
    return (code <= fail::version && code >= fail::addressStatus) || code == fail::callParameters;
}

void Use::fail(int32_t code) const noexcept {
    change([&] {
        if (device_->failCode == 0 || namesLineFault(code))
            device_->failCode = code;
    });
}

void Use::failInAnyCase(int32_t code) const noexcept {
    change([&] { device_->failCode = code; });
}

bool inUse(const TelephonyDevice& device) noexcept {
    return device.connected != 0 || device.connecting != 0 || device.threadUnderWay != 0;
}

std::optional<Use> begin(TelephonyDevice& device, UseKind kind) noexcept {
    MutexLock lock(device.mutex);
    if (inUse(device))
        return std::nullopt;
    device.use = device.use + 1;
    resetEntry(device);
    device.cancelRequested = 0;
    device.connectResultWanted = kind == UseKind::autoAnswer ? 0 : 1;
    (kind == UseKind::startConnect ? device.threadUnderWay : device.connecting) = 1;
    if (kind == UseKind::autoAnswer) {
        device.autoAnswerArmed = 1;
        device.autoAnswerState = autoAnswer::armed;
    }
    return Use(device);
}

bool takeOver(const Use& use) noexcept {
    TelephonyDevice& device = use.device();
    return use.change([&] {
        resetEntry(device);
        device.connecting = 1;
    });
}

namespace {

uint32_t take(Shared<uint32_t>& handle) noexcept {
    uint32_t call = handle;
    noteOver(call); // before it is nobody's
    handle = 0;
    return call;
}

} // namespace

uint32_t takeCall(TelephonyDevice& device) noexcept {
    return take(device.callHandle);
}

uint32_t takeOffer(TelephonyDevice& device) noexcept {
    return take(device.offeredCall);
}

void noteOver(uint32_t call) noexcept {
    if (call != 0)
        over[overCount.fetch_add(1) % over.size()] = call;
}

bool isOver(uint32_t call) noexcept {
    return call != 0 && std::ranges::any_of(over, [=](const auto& ended) { return ended == call; });
}

Handles endUse(TelephonyDevice& device) noexcept {
    MutexLock lock(device.mutex);
    Handles ended{.call = takeCall(device), .line = device.lineHandle};
    device.use = device.use + 1;
    takeOffer(device);
    device.lineHandle = 0;
    device.connected = 0;
    device.connecting = 0;
    device.threadUnderWay = 0;
    return ended;
}

void giveUp(const Use& use) noexcept {
    use.change([&] { use.device().connecting = 0; });
}

void wakeWaits() noexcept {
    if (HeldPort context(contextPort); context)
        context->events.wakeAll();
}

} // namespace brisolt::telephony
