// The entry points about the service and its modems as a whole.
#include <algorithm>
#include <string_view>
#include <type_traits>

#include <strings.h>

#include "border.h"
#include "line_end.h"
#include "messages.h"
#include "switchboard.h"

using namespace brisolt::service;

namespace {

/// With the lock held: 0, or why not.
int32_t check(uint32_t application, uint32_t device) {
    const Switchboard& board = switchboard();
    if (!board.applications.contains(application))
        return result::badApplication;
    return device < board.modems.size() ? result::success : result::badDevice;
}

/// The modems of the profile, when nobody uses those there are.
void takeModems(std::unique_lock<std::mutex>& lock, std::vector<ModemSettings> profile) {
    Switchboard& board = switchboard();
    for (const auto& modem : std::vector(board.modems))
        awaitEnd(lock, *modem);
    if (!board.applications.empty())
        return;
    std::vector<std::shared_ptr<Modem>> modems;
    for (ModemSettings& settings : profile) {
        auto modem = std::make_shared<Modem>();
        modem->identifier = static_cast<uint32_t>(modems.size());
        modem->settings = std::move(settings);
        modems.push_back(std::move(modem));
    }
    board.modems.swap(modems);
}

/// The same for a line whenever it is asked for, whatever its place in the profile.
uint32_t permanentIdentifier(std::string_view name) {
    uint32_t hash = 2166136261U;
    for (const char character : name)
        hash = (hash ^ static_cast<uint8_t>(character)) * 16777619U;
    return hash;
}

DeviceCapabilities capabilitiesOf(const ModemSettings& settings, bool withName) {
    DeviceCapabilities answer{};
    answer.permanentLineId = permanentIdentifier(settings.name);
    answer.nameFormat = stringFormat::plain;
    if (withName) {
        answer.nameSize = static_cast<uint32_t>(settings.name.size() + 1);
        answer.nameOffset = sizeof answer;
    }
    answer.addressModes = addressMode::byIdentifier;
    answer.addresses = 1;
    answer.bearerModes = settings.bearer;
    answer.maxRate = settings.speed;
    answer.mediaModes = media::dataModem;
    answer.lineFeatures = feature::lineMakeCall;
    return answer;
}

} // namespace

BRISOLT_EXPORT int32_t lineInitialize(uint32_t* application, void*, Callback callback, const char*,
                                      uint32_t* deviceCount) {
    return guarded([&] {
        if (application == nullptr || callback == nullptr || deviceCount == nullptr)
            return result::nullPointer;
        Switchboard& board = switchboard();
        std::unique_lock lock(board.mutex);
        if (!openMessages())
            return result::resourceUnavailable;
        if (board.applications.empty()) {
            lock.unlock();
            std::vector<ModemSettings> profile = readModems();
            lock.lock();
            takeModems(lock, std::move(profile));
        }
        *deviceCount = static_cast<uint32_t>(board.modems.size());
        if (board.modems.empty())
            return result::noDevices;
        const uint32_t handle = board.newHandle();
        board.applications.emplace(handle, callback);
        *application = handle;
        return result::success;
    });
}

/// All lines are closed and their threads are at their end when this returns. A modem that has to be talked
/// out of a call takes a few seconds for it.
BRISOLT_EXPORT int32_t lineShutdown(uint32_t application) {
    return guarded([&] {
        Switchboard& board = switchboard();
        std::unique_lock lock(board.mutex);
        if (board.applications.erase(application) == 0)
            return result::badApplication;
        for (const auto& modem : board.modems)
            if (modem->application == application)
                beginEnd(*modem);
        // Without memory, of which the host may have none: who cannot leave would keep its lines for ever. The list
        // may be another one after each wait.
        const auto ends = [=](const auto& modem) {
            return modem->application == application &&
                   (modem->life != Life::none || modem->thread.joinable());
        };
        for (;;) {
            const auto found = std::find_if(board.modems.begin(), board.modems.end(), ends);
            if (found == board.modems.end())
                break;
            const std::shared_ptr<Modem> modem = *found;
            awaitEnd(lock, *modem);
        }
        return result::success;
    });
}

BRISOLT_EXPORT int32_t lineNegotiateAPIVersion(uint32_t application, uint32_t device, uint32_t low,
                                               uint32_t high, uint32_t* version, ExtensionId* extension) {
    return guarded([&] {
        if (version == nullptr)
            return result::nullPointer;
        const std::lock_guard guard(switchboard().mutex);
        if (const int32_t refused = check(application, device); refused != result::success)
            return refused;
        const uint32_t common = std::min(high, highestVersion);
        if (common < std::max(low, lowestVersion))
            return result::incompatibleVersion;
        *version = common;
        if (extension != nullptr)
            *extension = {};
        return result::success;
    });
}

BRISOLT_EXPORT int32_t lineGetDevCapsA(uint32_t application, uint32_t device, uint32_t, uint32_t,
                                       DeviceCapabilities* capabilities) {
    return guarded([&] {
        if (capabilities == nullptr)
            return result::nullPointer;
        const std::lock_guard guard(switchboard().mutex);
        if (const int32_t refused = check(application, device); refused != result::success)
            return refused;
        const ModemSettings& settings = switchboard().modems[device]->settings;
        const auto size = static_cast<uint32_t>(settings.name.size() + 1);
        const bool withName = hasRoom<DeviceCapabilities>(capabilities, size);
        return fill(capabilities, capabilitiesOf(settings, withName), settings.name.c_str(), size);
    });
}

BRISOLT_EXPORT int32_t lineGetAddressCapsA(uint32_t application, uint32_t device, uint32_t address, uint32_t,
                                           uint32_t, AddressCapabilities* capabilities) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        if (const int32_t refused = check(application, device); refused != result::success)
            return refused;
        if (address != 0)
            return result::badAddress;
        AddressCapabilities answer{};
        answer.lineDeviceId = device;
        return fill(capabilities, answer);
    });
}

/// The configuration is text, lines as they stand in the profile ("speed = 57600"); it holds from the next
/// opening of the line on, until the service is shut down.
BRISOLT_EXPORT int32_t lineSetDevConfigA(uint32_t device, const void* configuration, uint32_t size,
                                         const char* deviceClass) {
    return guarded([&] {
        constexpr uint32_t longest = 65536;
        if (configuration == nullptr || deviceClass == nullptr)
            return result::nullPointer;
        if (strcasecmp(deviceClass, modemClass) != 0)
            return result::badClass;
        if (size > longest)
            return result::badParameter;
        const std::lock_guard guard(switchboard().mutex);
        if (device >= switchboard().modems.size())
            return result::badDevice;
        std::string_view text(static_cast<const char*>(configuration), size);
        text = text.substr(0, text.find('\0'));
        return changeSettings(switchboard().modems[device]->settings, text) ? result::success
                                                                            : result::badParameter;
    });
}

static_assert(std::is_same_v<decltype(lineInitialize), LineInitialize>);
static_assert(std::is_same_v<decltype(lineShutdown), LineShutdown>);
static_assert(std::is_same_v<decltype(lineNegotiateAPIVersion), LineNegotiateVersion>);
static_assert(std::is_same_v<decltype(lineGetDevCapsA), LineGetDeviceCapabilities>);
static_assert(std::is_same_v<decltype(lineGetAddressCapsA), LineGetAddressCapabilities>);
static_assert(std::is_same_v<decltype(lineSetDevConfigA), LineSetDeviceConfiguration>);
