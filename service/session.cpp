#include "session.h"

#include <array>
#include <span>
#include <utility>

#include <poll.h>

#include "messages.h"
#include "refusals.h"

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

/// How often to look at the carrier. The host tells about modem signals only in a wait that nothing but a
/// signal ends.
constexpr auto carrierInterval = 250ms;
/// How often to announce what the host has no room for.
constexpr auto announceInterval = 100ms;
constexpr short hungUp = POLLHUP | POLLERR | POLLNVAL;

} // namespace

Session::Session(std::shared_ptr<Modem> modem)
    : modem_(std::move(modem)), settings_(modem_->settings), dialogue_(modem_->wake) {}

void Session::run() noexcept {
    try {
        if (opened(dialogue_.open(settings_)))
            work();
    } catch (...) {
        opened(result::outOfMemory); // unless it was before
        endCall();
        deviceGone(); // no more can be made of the line
    }
    end();
}

bool Session::opened(int32_t result) {
    Switchboard& board = switchboard();
    const std::lock_guard guard(board.mutex);
    if (!modem_->opened) {
        modem_->opened = result;
        modem_->life = result == result::success ? Life::open : Life::closing;
        board.changed.notify_all();
    }
    return result == result::success;
}

void Session::work() {
    while (!closing_) {
        {
            const std::lock_guard guard(switchboard().mutex);
            announced_ = announceMessages();
        }
        switch (phase_) {
        case Phase::talking: talk(); break;
        case Phase::lent:
        case Phase::gone: leaveAlone(); break;
        default: listen();
        }
        obey();
    }
    endCall();
}

void Session::end() noexcept {
    Switchboard& board = switchboard();
    {
        const std::lock_guard guard(board.mutex);
        modem_->handOver = -1;
    }
    relay_.close();
    dialogue_.line().close();
    const std::lock_guard guard(board.mutex);
    modem_->life = Life::none;
    modem_->busy = false;
    modem_->gone = true; // whoever has the line open
    board.changed.notify_all();
}

/// When to come back although nothing happens.
Until Session::soon() const {
    return announced_ ? Until() : Clock::now() + announceInterval;
}

void Session::listen() {
    std::string_view text;
    switch (dialogue_.listen(text, sooner(ringsUntil_, soon()), relay_.leftover())) {
    case Dialogue::Heard::line: heard(text); break;
    case Dialogue::Heard::silence:
        if (ringsUntil_ && Clock::now() >= *ringsUntil_)
            ringingEnded();
        break;
    case Dialogue::Heard::room: relay_.deliver(); break;
    case Dialogue::Heard::gone: deviceGone(); break;
    case Dialogue::Heard::called: break;
    }
}

void Session::talk() {
    const SerialLine& line = dialogue_.line();
    const bool carried = relay_.isOpen();
    std::array<pollfd, 3> entries{
        {{modem_->wake.descriptor(), POLLIN, 0}, {line.descriptor(), 0, 0}, {-1, 0, 0}}};
    const Until until =
        carried ? relay_.watch(line, std::span<pollfd, 2>(&entries[1], 2)) : Clock::now() + carrierInterval;
    waitFor(entries, sooner(until, soon()));
    const Relay::State state = carried          ? relay_.turn(line)
                               : line.carrier() ? Relay::State::talking
                                                : Relay::State::carrierLost;
    if (state == Relay::State::deviceGone || (entries[1].revents & hungUp) != 0)
        deviceGone();
    else if (state == Relay::State::carrierLost && carried)
        hungUpThere();
    else if (state == Relay::State::carrierLost)
        disconnected(disconnectedBy::normal);
}

/// Until the program wants something.
void Session::leaveAlone() {
    const int line = phase_ == Phase::gone ? -1 : dialogue_.line().descriptor();
    std::array<pollfd, 2> entries{{{modem_->wake.descriptor(), POLLIN, 0}, {line, 0, 0}}};
    waitFor(entries, soon());
    if ((entries[1].revents & hungUp) != 0)
        deviceGone();
}

void Session::obey() {
    Requests requests;
    {
        const std::lock_guard guard(switchboard().mutex);
        modem_->wake.clear();
        requests = std::exchange(modem_->requests, {});
    }
    if (requests.handedOver)
        relay_.handOver();
    if (requests.portOpen)
        relay_.portOpen();
    closing_ = requests.close;
    if (closing_)
        return;
    if (phase_ == Phase::lent && takeBack())
        phase_ = Phase::idle;
    if (requests.drop)
        drop(requests.identifier);
    else if (requests.dial)
        place(*requests.dial, requests.identifier);
    else if (requests.answer)
        answer(requests.identifier);
}

/// Whether the call that the line was lent to has been released.
bool Session::takeBack() {
    {
        const std::lock_guard guard(switchboard().mutex);
        if (modem_->call.state == callState::disconnected)
            return false;
    }
    dialogue_.line().discardInput();
    return true;
}

} // namespace brisolt::service
