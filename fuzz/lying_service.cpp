// The module: its entry points, those that the library calls.
#include "lying_service.h"

#include <cstring>

#include <fcntl.h>

using namespace brisolt::service;
using namespace brisolt::fuzz;

Lies* lies; ///< found by its name

namespace {

int32_t said() {
    constexpr int32_t codes[] = {
        result::lineInUse, result::callAgain1,     result::callAgain3,     result::operationFailed,
        result::noDevices, result::recordTooSmall, result::reinitialising, 1};
    const uint32_t choice = lies->next();
    return choice < 224 ? 0 : codes[choice % std::size(codes)];
}

/// The fixed part is `honest`, and then some of its words are something else.
template <class Record, class Honest> int32_t fill(Record* record, Honest honest) {
    const uint32_t total = record->sizes.total;
    if (total < sizeof(Record))
        return result::recordTooSmall;
    if (const int32_t code = said(); code != result::success)
        return code;
    record->sizes.needed = record->sizes.used = sizeof(Record);
    honest();
    auto* const words = reinterpret_cast<uint32_t*>(record);
    for (uint32_t count = lies->next() % 4; count > 0; --count) {
        const std::size_t which = lies->next() % (sizeof(Record) / sizeof *words);
        words[which] = lies->word();
    }
    return result::success;
}

} // namespace

extern "C" {
int32_t lineInitialize(uint32_t* application, void*, Callback callback, const char*, uint32_t* devices) {
    lies->callback = callback;
    *application = lies->oneOf({0x77U});
    *devices = lies->oneOf({2U});
    return said();
}
int32_t lineShutdown(uint32_t) {
    return said();
}
int32_t lineNegotiateAPIVersion(uint32_t, uint32_t device, uint32_t, uint32_t, uint32_t* version,
                                ExtensionId*) {
    *version = lies->oneOf({0x10004U});
    return device < 2 ? said() : result::incompatibleVersion;
}
int32_t lineGetDevCapsA(uint32_t, uint32_t device, uint32_t, uint32_t, DeviceCapabilities* record) {
    return fill(record, [=] {
        record->bearerModes = bearer::voice;
        record->mediaModes = media::dataModem;
        record->lineFeatures = feature::lineMakeCall;
        record->nameFormat = stringFormat::plain;
        record->nameSize = 2;
        record->nameOffset = sizeof *record;
        record->sizes.needed = record->sizes.used = sizeof *record + record->nameSize;
        if (record->sizes.total >= record->sizes.needed)
            std::memcpy(record + 1, device == 0 ? "A" : "B", record->nameSize);
    });
}
int32_t lineOpenA(uint32_t, uint32_t device, uint32_t* line, uint32_t, uint32_t, uintptr_t, uint32_t,
                  uint32_t, const CallParameters*) {
    *line = lies->oneOf({lineHandle + device});
    return said();
}
int32_t lineClose(uint32_t) {
    return said();
}
int32_t lineSetStatusMessages(uint32_t, uint32_t, uint32_t) {
    return said();
}
int32_t lineGetAddressStatusA(uint32_t, uint32_t, AddressStatus* record) {
    return fill(record, [=] { record->addressFeatures = feature::addressMakeCall; });
}
int32_t lineGetAddressCapsA(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, AddressCapabilities* record) {
    return fill(record, [] {});
}
/// Wherever the library looks for the handle behind the fixed part, there it is: another number would be one of this
/// process's own descriptors, which nobody is to close. It is never looked for in the fixed part for the same reason.
int32_t lineGetIDA(uint32_t, uint32_t, uint32_t, uint32_t select, VariableString* record, const char*) {
    const uint32_t total = record->sizes.total;
    const int32_t said = fill(record, [] {});
    if (said != result::success || select != select::call)
        return said;
    record->stringOffset = static_cast<uint32_t>(sizeof *record) + lies->word() % (1U << 29) * 4;
    record->stringSize = lies->oneOf({sizeof(int)});
    const bool canRead = record->sizes.needed <= total && record->stringSize >= sizeof(int) &&
                         record->stringOffset <= total - sizeof(int);
    const int handle = canRead && lies->next() < 192 ? open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
    if (handle >= 0)
        lies->handles.push_back(handle);
    auto* const words = reinterpret_cast<int*>(record + 1);
    for (std::size_t i = 0; i < (total - sizeof *record) / sizeof(int); ++i)
        words[i] = handle;
    return said;
}
int32_t lineMakeCallA(uint32_t line, uint32_t* call, const char*, uint32_t, const CallParameters*) {
    *call = lies->oneOf({callHandle});
    const int32_t code = said();
    lies->talk(line, *call);
    if (code == result::success)
        lies->callback(*call, message::callState, 0, callState::connected, 0, 0);
    return code == result::success ? 1 : code;
}
int32_t lineAnswer(uint32_t call, const char*, uint32_t) {
    lies->talk(lineHandle, call);
    return said();
}
int32_t lineDrop(uint32_t call, const char*, uint32_t) {
    lies->talk(lineHandle, call);
    lies->callback(call, message::callState, 0, callState::idle, 0, 0);
    return said();
}
int32_t lineDeallocateCall(uint32_t) {
    return said();
}
int32_t lineGetCallStatus(uint32_t, CallStatus* record) {
    return fill(record, [=] { record->callState = callState::connected; });
}
}
