// The module of the scripted service: its entry points, those that the library calls.
#include <cstring>

#include "telephony/scripted_service.h"

using namespace brisolt::service;

brisolt::test::ScriptedService* scriptedService; ///< found by its name

namespace {

auto& script() {
    return *scriptedService;
}

/// Counts the call. What the script has for it, else the usual, both with the lock held.
template <class Usual> int32_t answer(const char* entry, Usual usual) {
    std::lock_guard lock(script().mutex);
    ++script().counts[entry];
    auto& [waiting, always] = script().answers[entry];
    const int32_t result = waiting.empty() ? always : waiting.front();
    if (!waiting.empty())
        waiting.pop_front();
    return result != 0 ? result : usual();
}

/// Device 0 for a line that is not open.
uint32_t deviceOf(uint32_t line) {
    return script().seen(script().lines)[line];
}

int32_t outcome(bool right) {
    return right ? result::success : result::operationFailed;
}

/// A record as a real service fills it: the fixed part, and what it would need for the rest.
template <class Record, class Fill> int32_t fill(const char* entry, Record* record, Fill fixed) {
    return answer(entry, [=] {
        const uint32_t total = record->sizes.total;
        if (total < sizeof(Record))
            return result::recordTooSmall;
        record->sizes.needed = record->sizes.used = sizeof(Record);
        fixed(*record, total);
        record->sizes.needed += script().padding(total);
        return result::success;
    });
}

} // namespace

extern "C" {
int32_t lineInitialize(uint32_t* application, void*, Callback callback, const char* name, uint32_t* devices) {
    return answer("lineInitialize", [=] {
        script().callback = callback;
        *application = 0x77;
        *devices = script().reportedDevices;
        return outcome(std::strcmp(name, "Velloria") == 0);
    });
}
int32_t lineShutdown(uint32_t application) {
    return answer("lineShutdown", [=] { return outcome(application == 0x77); });
}
int32_t lineNegotiateAPIVersion(uint32_t, uint32_t device, uint32_t low, uint32_t high, uint32_t* version,
                                ExtensionId*) {
    return answer("lineNegotiateAPIVersion", [=] {
        const bool known = device < script().modems.size();
        *version = known ? script().modems[device].version : 0;
        return outcome(known && low == lowestVersion && high == highestVersion);
    });
}
int32_t lineGetDevCapsA(uint32_t, uint32_t device, uint32_t, uint32_t, DeviceCapabilities* record) {
    return fill("lineGetDevCapsA", record, [=](DeviceCapabilities& fixed, uint32_t total) {
        const auto& modem = script().modems.at(device);
        fixed.bearerModes = modem.bearerModes;
        fixed.mediaModes = modem.mediaModes;
        fixed.lineFeatures = modem.lineFeatures;
        fixed.nameFormat = modem.nameFormat;
        fixed.nameSize = static_cast<uint32_t>(modem.name.size()) + 1;
        fixed.nameOffset = modem.nameOffset;
        fixed.sizes.needed += fixed.nameSize;
        if (fixed.nameOffset == sizeof fixed && fixed.sizes.needed <= total)
            std::memcpy(&fixed + 1, modem.name.c_str(), fixed.nameSize);
    });
}
int32_t lineOpenA(uint32_t, uint32_t device, uint32_t* line, uint32_t, uint32_t, uintptr_t,
                  uint32_t privileges, uint32_t media, const CallParameters*) {
    return answer("lineOpenA", [=] {
        script().opened.emplace_back(privileges, media);
        *line = ++script().lastHandle;
        script().lines[*line] = device;
        return result::success;
    });
}
int32_t lineClose(uint32_t line) {
    return answer("lineClose", [=] { return outcome(script().lines.erase(line) == 1); });
}
int32_t lineSetStatusMessages(uint32_t, uint32_t line, uint32_t address) {
    const bool all = line == statusMessages::allLine && address == statusMessages::allAddress;
    return answer("lineSetStatusMessages", [=] { return outcome(all); });
}
int32_t lineGetAddressStatusA(uint32_t line, uint32_t, AddressStatus* record) {
    return fill("lineGetAddressStatusA", record, [=](AddressStatus& status, uint32_t) {
        status.addressFeatures = script().modems.at(deviceOf(line)).addressFeatures;
    });
}
int32_t lineGetAddressCapsA(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, AddressCapabilities* record) {
    return fill("lineGetAddressCapsA", record, [](auto&, uint32_t) {});
}
int32_t lineGetIDA(uint32_t, uint32_t, uint32_t call, uint32_t select, VariableString* record, const char*) {
    if (select != select::call)
        return fill("lineGetIDA", record, [](auto&, uint32_t) {});
    return fill("lineGetIDA of a call", record, [=](VariableString& fixed, uint32_t total) {
        fixed.stringFormat = stringFormat::binary;
        fixed.stringSize = sizeof(uint32_t);
        fixed.stringOffset = sizeof fixed;
        fixed.sizes.needed += fixed.stringSize;
        if (fixed.sizes.needed + script().padding(total) > total)
            return;
        const int32_t handle = script().handleOf(deviceOf(script().seen(script().calls)[call].line));
        std::memcpy(&fixed + 1, &handle, sizeof handle);
    });
}
int32_t lineMakeCallA(uint32_t line, uint32_t* call, const char* dialString, uint32_t,
                      const CallParameters* parameters) {
    const int32_t code = answer("lineMakeCallA", [=] {
        *call = script().reusedHandle != 0 ? script().reusedHandle : ++script().lastHandle;
        script().calls[*call] = {line, 0};
        script().dialled.emplace_back(dialString);
        script().lastParameters = *parameters;
        script().lastDisplayable.assign(reinterpret_cast<const char*>(parameters + 1),
                                        parameters->displayableAddressSize);
        return result::success;
    });
    if (code != result::success)
        return code;
    script().onMakeCall(*call);
    return 1;
}
int32_t lineAnswer(uint32_t call, const char*, uint32_t) {
    return answer("lineAnswer", [=] { return script().postState(call, callState::connected); });
}
int32_t lineDrop(uint32_t call, const char*, uint32_t) {
    return answer("lineDrop", [=] { return script().postState(call, callState::idle); });
}
int32_t lineDeallocateCall(uint32_t call) {
    return answer("lineDeallocateCall", [=] { return outcome(script().calls.erase(call) == 1); });
}
int32_t lineGetCallStatus(uint32_t call, CallStatus* record) {
    const auto calls = script().seen(script().calls);
    if (!calls.contains(call))
        return result::operationFailed;
    return fill("lineGetCallStatus", record,
                [&](CallStatus& status, uint32_t) { status.callState = calls.at(call).state; });
}
}
