// The entry points about calls. They leave word with the modem's thread, which does what they ask for.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "border.h"
#include "messages.h"
#include "switchboard.h"

using namespace brisolt::service;

namespace {

/// Digits and what steers dialling. Nothing that would end the command or begin another, and no semicolon:
/// behind it a modem waits for commands instead of an answer.
bool isNumber(std::string_view text) {
    constexpr std::size_t longest = 80;
    constexpr std::string_view signs = "*#+,@! ().-/";
    constexpr std::string_view letters = "ABCDPTW";
    return !text.empty() && text.size() <= longest && std::all_of(text.begin(), text.end(), [&](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return std::isdigit(byte) != 0 || signs.find(c) != std::string_view::npos ||
               letters.find(static_cast<char>(std::toupper(byte))) != std::string_view::npos;
    });
}

/// What a program wants of a call: 0, or why a modem cannot do it.
int32_t checkParameters(const Modem& modem, const CallParameters* wanted) {
    if (wanted == nullptr)
        return result::success;
    CallParameters parameters{};
    std::memcpy(&parameters.totalSize, wanted, sizeof parameters.totalSize);
    if (parameters.totalSize < sizeof parameters)
        return result::recordTooSmall;
    std::memcpy(&parameters, wanted, sizeof parameters);
    if (parameters.bearerMode != 0 && (parameters.bearerMode & modem.settings.bearer) == 0)
        return result::badBearer;
    const bool anyMedia = parameters.mediaMode == 0;
    return anyMedia || (parameters.mediaMode & media::dataModem) != 0 ? result::success : result::badMedia;
}

/// Leaves word; the request's identifier.
int32_t request(Modem& modem) {
    modem.busy = true;
    modem.requests.identifier = switchboard().newRequest();
    modem.wake.call();
    return modem.requests.identifier;
}

} // namespace

BRISOLT_EXPORT int32_t lineMakeCallA(uint32_t line, uint32_t* call, const char* dialString, uint32_t,
                                     const CallParameters* parameters) {
    return guarded([&] {
        if (call == nullptr || dialString == nullptr)
            return result::nullPointer;
        Switchboard& board = switchboard();
        const std::lock_guard guard(board.mutex);
        const std::shared_ptr<Modem> modem = modemOfLine(line);
        if (modem == nullptr)
            return result::badLine;
        if (!isNumber(dialString))
            return result::badNumber;
        if (const int32_t refused = checkParameters(*modem, parameters); refused != result::success)
            return refused;
        if (modem->gone)
            return result::operationFailed;
        if (modem->busy || !modem->call.isOver())
            return result::callUnavailable;
        reserveMessages();
        modem->requests.dial = dialString;
        modem->call = {.handle = board.newHandle(), .state = callState::dialling};
        *call = modem->call.handle;
        return request(*modem);
    });
}

BRISOLT_EXPORT int32_t lineAnswer(uint32_t call, const char*, uint32_t) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfCall(call);
        if (modem == nullptr)
            return result::badCall;
        if ((modem->privileges & privilege::owner) == 0)
            return result::notOwner;
        if (modem->call.state != callState::offering || modem->busy)
            return result::wrongCallState;
        reserveMessages();
        modem->requests.answer = true;
        return request(*modem);
    });
}

BRISOLT_EXPORT int32_t lineDrop(uint32_t call, const char*, uint32_t) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfCall(call);
        if (modem == nullptr)
            return result::badCall;
        if (modem->privileges == privilege::monitor)
            return result::notOwner;
        if (modem->call.isOver() || modem->call.dropping)
            return result::success;
        if (modem->requests.dial || modem->requests.answer) // not even begun
            postReply(modem, modem->requests.identifier, result::operationFailed);
        modem->requests = {};
        modem->requests.drop = true;
        modem->call.dropping = true;
        return request(*modem);
    });
}

BRISOLT_EXPORT void brisoltPortOpen(uint32_t call) {
    guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        if (const std::shared_ptr<Modem> modem = modemOfCall(call)) {
            modem->requests.portOpen = true;
            modem->wake.call();
        }
        return result::success;
    });
}

/// A call that goes on has to be dropped first; its end need not have come.
BRISOLT_EXPORT int32_t lineDeallocateCall(uint32_t call) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfCall(call);
        if (modem == nullptr)
            return result::badCall;
        const Call& now = modem->call;
        const bool offered = now.state == callState::offering && !modem->busy;
        if (!now.isOver() && !now.dropping && !offered && now.state != callState::disconnected)
            return result::wrongCallState;
        modem->call = {};
        modem->wake.call(); // the line may still be the call's
        return result::success;
    });
}

BRISOLT_EXPORT int32_t lineGetCallStatus(uint32_t call, CallStatus* status) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfCall(call);
        if (modem == nullptr)
            return result::badCall;
        CallStatus answer{};
        answer.callState = modem->call.state;
        answer.callStateDetail = modem->call.detail;
        const bool monitor = modem->privileges == privilege::monitor;
        answer.callPrivilege = monitor ? privilege::monitor : privilege::owner;
        return fill(status, answer);
    });
}

static_assert(std::is_same_v<decltype(lineMakeCallA), LineMakeCall>);
static_assert(std::is_same_v<decltype(lineAnswer), LineAnswer>);
static_assert(std::is_same_v<decltype(lineDrop), LineDrop>);
static_assert(std::is_same_v<decltype(lineDeallocateCall), LineDeallocateCall>);
static_assert(std::is_same_v<decltype(lineGetCallStatus), LineGetCallStatus>);
