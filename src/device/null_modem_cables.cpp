#include "device/null_modem_cables.h"

#include <algorithm>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "device/null_modem_cable.h"
#include "platform/error_text.h"
#include "platform/forked.h"
#include "platform/mutex.h"

namespace brisolt {

namespace {

constexpr int32_t failure(std::errc reason) noexcept {
    return -static_cast<int32_t>(reason);
}

// Neither made on first use nor ever gone: a thread may close its end while the program ends.
constinit Mutex lock; // taken before that of a cable
constinit NullModemCable* cables GUARDED_BY(lock) = nullptr;

/// Where the cable stands in the list, or null stands at its end.
NullModemCable*& find(const CableKind& kind, std::string_view name) noexcept WITH_LOCK(lock) {
    NullModemCable** place = &cables;
    while (*place != nullptr && (&(*place)->kind() != &kind || (*place)->name() != name))
        place = &(*place)->next;
    return *place;
}

void endIfUnused(NullModemCable*& place) noexcept WITH_LOCK(lock) {
    if (!place->unused())
        return;
    const std::unique_ptr<NullModemCable> ended(place);
    place = ended->next;
}

std::string_view whyNot(const CableKind& kind, int32_t error) noexcept {
    switch (-error) {
    case static_cast<int32_t>(std::errc::device_or_resource_busy): return kind.taken;
    case static_cast<int32_t>(std::errc::too_many_files_open): return "the process has no descriptor left";
    default: return "the process has no memory left";
    }
}

void beginAnew() noexcept LOCKS_UNCHECKED {
    lock.beginAnew();
    cables = nullptr;
}

int32_t joinCable(const CableKind& kind, const CableAddress& address, NullModemEnd*& end) noexcept try {
    forked::beginAnewInChild(beginAnew);
    const MutexLock guard(lock);
    NullModemCable*& place = find(kind, address.name);
    if (place == nullptr)
        place = new NullModemCable(kind, address.name);
    const int32_t joined = place->join(address.start, end);
    if (joined < 0)
        endIfUnused(place);
    return joined;
} catch (const std::bad_alloc&) {
    return failure(std::errc::not_enough_memory);
}

} // namespace

namespace {

/// One option: "paced=yes", "paced=no" and, as it was first written, "paced" alone. False when it is another.
bool readSwitch(std::string_view option, std::string_view key, bool& on) noexcept {
    const std::string_view value = option.substr(std::min(option.size(), key.size()));
    if (option.substr(0, key.size()) != key || (!value.empty() && value != "=yes" && value != "=no"))
        return false;
    on = value != "=no";
    return true;
}

/// What stands behind the name.
void readOptions(std::string_view options, const CableKind& kind, CableAddress& address) noexcept {
    bool pacedGiven = false, autobaudGiven = false;
    while (!options.empty() && address.wrong.empty()) {
        address.option = options.substr(0, options.find('&'));
        options.remove_prefix(std::min(address.option.size() + 1, options.size()));
        bool* given = nullptr;
        if (readSwitch(address.option, "paced", address.start.paced))
            given = &pacedGiven;
        else if (!kind.isLoop && readSwitch(address.option, "autobaud", address.start.autobaud))
            given = &autobaudGiven;
        if (given == nullptr)
            address.wrong = kind.options;
        else if (std::exchange(*given, true))
            address.wrong = "is given a second time";
    }
}

} // namespace

CableAddress cableAddress(const CableKind& kind, std::string_view path) noexcept {
    const auto sameLetter = [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); };
    CableAddress address;
    if (path.size() < kind.scheme.size() ||
        !std::equal(kind.scheme.begin(), kind.scheme.end(), path.begin(), sameLetter)) {
        address.wrong = "no path of this scheme";
        return address;
    }
    address.name = path.substr(kind.scheme.size());
    const size_t option = address.name.find('?');
    const std::string_view options = option == std::string_view::npos ? "" : address.name.substr(option + 1);
    address.name = address.name.substr(0, option);
    readOptions(options, kind, address);
    if (address.wrong.empty())
        address.option = {};
    if (address.wrong.empty() && address.name.empty())
        address.wrong = "a name is missing";
    return address;
}

int32_t openCableEnd(const CableKind& kind, const CableAddress& address, NullModemEnd*& end) noexcept {
    const int32_t joined = joinCable(kind, address, end);
    if (joined < 0)
        setErrorTextFrom({kind.scheme, address.name, ": ", whyNot(kind, joined)});
    return joined;
}

void closeCableEnd(NullModemEnd& end) noexcept {
    const MutexLock guard(lock);
    NullModemCable& cable = end.cable;
    cable.leave(end);
    endIfUnused(find(cable.kind(), cable.name()));
}

bool ringCable(const CableKind& kind, std::string_view path, bool on) noexcept {
    const CableAddress address = cableAddress(kind, path);
    if (!address.wrong.empty())
        return false;
    const MutexLock guard(lock);
    NullModemCable* const cable = find(kind, address.name);
    if (cable != nullptr)
        cable->ring(on);
    return cable != nullptr;
}

} // namespace brisolt
