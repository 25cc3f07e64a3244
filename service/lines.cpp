// The entry points about lines: opening one makes a thread that lives as long as it does.
#include <csignal>
#include <type_traits>

#include <fcntl.h>
#include <strings.h>

#include "border.h"
#include "line_end.h"
#include "messages.h"
#include "session.h"
#include "switchboard.h"

using namespace brisolt::service;

namespace brisolt::service {

void beginEnd(Modem& modem) {
    if (modem.line == 0)
        return;
    modem.line = 0;
    modem.call = {};
    modem.requests = {};
    modem.requests.close = true;
    if (modem.life == Life::open)
        modem.life = Life::closing;
    modem.wake.call();
}

void awaitEnd(std::unique_lock<std::mutex>& lock, Modem& modem) {
    switchboard().changed.wait(lock, [&] { return modem.life == Life::none; });
    if (!modem.thread.joinable())
        return;
    std::thread ended = std::move(modem.thread);
    lock.unlock();
    ended.join();
    lock.lock();
}

} // namespace brisolt::service

namespace {

struct SignalsBlocked {
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before{};
};

/// Signals belong to the program's own threads.
std::thread startThread(std::unique_ptr<Session> session) {
    const SignalsBlocked blocked;
    return std::thread([session = std::move(session)] { session->run(); });
}

int32_t checkOpening(uint32_t application, uint32_t device, uint32_t privileges, uint32_t mediaModes) {
    const Switchboard& board = switchboard();
    if (!board.applications.contains(application))
        return result::badApplication;
    if (device >= board.modems.size())
        return result::badDevice;
    constexpr uint32_t known = privilege::none | privilege::monitor | privilege::owner;
    const bool noneOnly = (privileges & privilege::none) == 0 || privileges == privilege::none;
    if (privileges == 0 || (privileges & ~known) != 0 || !noneOnly)
        return result::badPrivileges;
    return (mediaModes & media::dataModem) != 0 ? result::success : result::badMedia;
}

/// Waits until a modem that is being hung up is at rest.
int32_t awaitTurn(std::unique_lock<std::mutex>& lock, uint32_t application, Modem& modem) {
    while (modem.line == 0 && (modem.life != Life::none || modem.thread.joinable()))
        awaitEnd(lock, modem);
    if (modem.line != 0)
        return result::lineInUse;
    return switchboard().applications.contains(application) ? result::success : result::badApplication;
}

/// Takes the line and waits until its thread tells whether the modem answers.
int32_t openLine(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Modem>& modem, uint32_t line) {
    if (!modem->wake.open())
        return result::resourceUnavailable;
    modem->wake.clear(); // the last thread may have ended with a call still to come
    reserveMessages();
    modem->thread = startThread(std::make_unique<Session>(modem)); // what fails has changed nothing so far
    modem->life = Life::opening;
    modem->opened.reset();
    modem->gone = modem->busy = false;
    modem->call = {};
    modem->requests = {};
    modem->lineStates = 0;
    modem->line = line;
    switchboard().changed.wait(lock, [&] { return modem->opened.has_value(); });
    const int32_t opened = *modem->opened;
    if (opened != result::success && modem->line == line)
        modem->line = 0;
    if (opened != result::success)
        awaitEnd(lock, *modem);
    return opened != result::success || modem->line == line ? opened : result::operationFailed;
}

/// What a program could use comes with a call; the identifier of an open line has nothing in it.
int32_t identifyLine(VariableString* identifier) {
    VariableString answer{};
    answer.stringFormat = stringFormat::binary;
    return fill(identifier, answer);
}

int32_t identifyCall(VariableString* identifier, Modem& modem) {
    if (modem.handOver < 0)
        return result::wrongCallState;
    VariableString answer{};
    answer.stringFormat = stringFormat::binary;
    constexpr uint32_t size = sizeof(uint32_t);
    if (!hasRoom<VariableString>(identifier, size))
        return fill(identifier, answer, &modem.handOver, size);
    const int copy = fcntl(modem.handOver, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return result::resourceUnavailable;
    answer.stringSize = size;
    answer.stringOffset = sizeof answer;
    modem.requests.handedOver = true;
    modem.wake.call();
    return fill(identifier, answer, &copy, size);
}

} // namespace

BRISOLT_EXPORT int32_t lineOpenA(uint32_t application, uint32_t device, uint32_t* line, uint32_t, uint32_t,
                                 uintptr_t callbackInstance, uint32_t privileges, uint32_t mediaModes,
                                 const CallParameters*) {
    return guarded([&] {
        if (line == nullptr)
            return result::nullPointer;
        Switchboard& board = switchboard();
        std::unique_lock lock(board.mutex);
        int32_t refused = checkOpening(application, device, privileges, mediaModes);
        if (refused != result::success)
            return refused;
        const std::shared_ptr<Modem> modem = board.modems[device];
        refused = awaitTurn(lock, application, *modem);
        if (refused != result::success)
            return refused;
        const uint32_t handle = board.newHandle();
        modem->application = application;
        modem->instance = callbackInstance;
        modem->privileges = privileges;
        refused = openLine(lock, modem, handle);
        if (refused == result::success)
            *line = handle;
        return refused;
    });
}

/// A call on the line is ended behind it; another opening of the line waits for that.
BRISOLT_EXPORT int32_t lineClose(uint32_t line) {
    return guarded([&] {
        std::unique_lock lock(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfLine(line);
        if (modem == nullptr)
            return result::badLine;
        const bool hangsUp = modem->busy;
        beginEnd(*modem);
        if (!hangsUp)
            awaitEnd(lock, *modem);
        return result::success;
    });
}

BRISOLT_EXPORT int32_t lineSetStatusMessages(uint32_t line, uint32_t lineStates, uint32_t) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfLine(line);
        if (modem == nullptr)
            return result::badLine;
        modem->lineStates = lineStates;
        return result::success;
    });
}

BRISOLT_EXPORT int32_t lineGetAddressStatusA(uint32_t line, uint32_t address, AddressStatus* status) {
    return guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        const std::shared_ptr<Modem> modem = modemOfLine(line);
        if (modem == nullptr)
            return result::badLine;
        if (address != 0)
            return result::badAddress;
        AddressStatus answer{};
        const bool free = !modem->gone && !modem->busy && modem->call.isOver();
        answer.addressFeatures = free ? feature::addressMakeCall : 0;
        return fill(status, answer);
    });
}

BRISOLT_EXPORT int32_t lineGetIDA(uint32_t line, uint32_t address, uint32_t call, uint32_t wanted,
                                  VariableString* identifier, const char* deviceClass) {
    return guarded([&] {
        if (identifier == nullptr || deviceClass == nullptr)
            return result::nullPointer;
        if (strcasecmp(deviceClass, modemClass) != 0)
            return result::badClass;
        if (!hasRoom<VariableString>(identifier, 0))
            return result::recordTooSmall;
        const std::lock_guard guard(switchboard().mutex);
        if (wanted == select::call) {
            const std::shared_ptr<Modem> modem = modemOfCall(call);
            return modem == nullptr ? result::badCall : identifyCall(identifier, *modem);
        }
        if (wanted != select::line && wanted != select::address)
            return result::badSelect;
        if (modemOfLine(line) == nullptr)
            return result::badLine;
        return wanted == select::address && address != 0 ? result::badAddress : identifyLine(identifier);
    });
}

static_assert(std::is_same_v<decltype(lineOpenA), LineOpen>);
static_assert(std::is_same_v<decltype(lineClose), LineClose>);
static_assert(std::is_same_v<decltype(lineSetStatusMessages), LineSetStatusMessages>);
static_assert(std::is_same_v<decltype(lineGetAddressStatusA), LineGetAddressStatus>);
static_assert(std::is_same_v<decltype(lineGetIDA), LineGetId>);
