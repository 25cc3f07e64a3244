#include "messages.h"

#include <new>
#include <utility>

#include "library.h"

namespace brisolt::service {

namespace {

struct Delivery {
    Callback callback;
    uintptr_t instance;
    Event event;
};

/// A call is told to be dialled, proceeding, connected, disconnected and idle; two requests are replied to, and
/// the line may be taken away.
std::size_t wantedSpares() {
    constexpr std::size_t perModem = 8;
    return perModem * switchboard().modems.size();
}

bool isWanted(const Switchboard& board, const Event& event) {
    const bool lineOpen = event.modem->line == event.line && event.modem->application == event.application;
    const bool callThere = event.call == 0 || event.modem->call.handle == event.call;
    return board.applications.contains(event.application) && lineOpen && callThere;
}

std::optional<Delivery> takeEvent() {
    Switchboard& board = switchboard();
    const std::lock_guard guard(board.mutex);
    while (!board.events.empty()) {
        Event event = std::move(board.events.front());
        if (board.spareEvents.size() < wantedSpares())
            board.spareEvents.splice(board.spareEvents.end(), board.events, board.events.begin());
        else
            board.events.pop_front();
        if (isWanted(board, event)) {
            const uintptr_t instance = event.modem->instance;
            return Delivery{board.applications.at(event.application), instance, std::move(event)};
        }
    }
    return std::nullopt;
}

/// The callback may pump, and then the rest is delivered inside it, each message by its own call of this.
/// One call delivers all there is, so that none stays behind when the host had no room for its post.
void deliver(void*, int32_t, uint32_t, uintptr_t, intptr_t) {
    while (const auto delivery = takeEvent()) {
        const Event& event = delivery->event;
        delivery->callback(event.device, event.message, delivery->instance, event.p1, event.p2, event.p3);
    }
}

void post(const Event& event) noexcept {
    Switchboard& board = switchboard();
    try {
        board.events.push_back(event);
    } catch (const std::bad_alloc&) {
        if (board.spareEvents.empty())
            return; // the state can still be asked for
        board.spareEvents.front() = event;
        board.events.splice(board.events.end(), board.spareEvents, board.spareEvents.begin());
    }
    board.announced = false;
    announceMessages();
}

Event about(const std::shared_ptr<Modem>& modem, uint32_t message) {
    Event event;
    event.application = modem->application;
    event.line = modem->line;
    event.modem = modem;
    event.message = message;
    return event;
}

} // namespace

bool openMessages() {
    Switchboard& board = switchboard();
    if (board.window <= 0)
        board.window = library().createSharedWindow(deliver, nullptr);
    return board.window > 0;
}

void reserveMessages() {
    auto& spare = switchboard().spareEvents;
    while (spare.size() < wantedSpares())
        spare.emplace_back();
}

bool announceMessages() noexcept {
    Switchboard& board = switchboard();
    board.announced = board.announced || library().postMessage(board.window, 0, 0, 0) > 0;
    return board.announced;
}

void postCallState(const std::shared_ptr<Modem>& modem, uint32_t state, uint32_t detail) noexcept {
    if (modem->line == 0 || modem->call.handle == 0)
        return;
    modem->call.state = state;
    modem->call.detail = detail;
    Event event = about(modem, message::callState);
    event.device = event.call = modem->call.handle;
    event.p1 = state;
    event.p2 = detail;
    post(event);
}

void postReply(const std::shared_ptr<Modem>& modem, int32_t request, int32_t result) noexcept {
    if (modem->line == 0 || modem->call.handle == 0 || request == 0)
        return;
    Event event = about(modem, message::reply);
    event.device = event.call = modem->call.handle;
    event.p1 = static_cast<uint32_t>(request);
    event.p2 = static_cast<uint32_t>(result);
    post(event);
}

void postLineState(const std::shared_ptr<Modem>& modem, uint32_t state, uint32_t p2, uint32_t p3) noexcept {
    if (modem->line == 0 || (modem->lineStates & state) == 0)
        return;
    Event event = about(modem, message::lineDeviceState);
    event.device = modem->line;
    event.p1 = state;
    event.p2 = p2;
    event.p3 = p3;
    post(event);
}

} // namespace brisolt::service
