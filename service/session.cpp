#include "session.h"

#include <array>
#include <span>
#include <utility>

#include <poll.h>

#include "refusals.h"

namespace brisolt::service {

namespace {

/// How often to look at the carrier. The host tells about modem signals only in a wait that nothing but a
/// signal ends.
constexpr int carrierInterval = 250;
constexpr short hungUp = POLLHUP | POLLERR | POLLNVAL;

ModemSettings settingsOf(const Modem& modem) {
    const std::lock_guard guard(switchboard().mutex);
    return modem.settings;
}

} // namespace

Session::Session(std::shared_ptr<Modem> modem)
    : modem_(std::move(modem)), settings_(settingsOf(*modem_)), dialogue_(modem_->wake) {}

void Session::run() noexcept {
    try {
        if (opened(dialogue_.open(settings_)))
            work();
    } catch (...) {
        opened(result::outOfMemory); // unless it was before
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

void Session::listen() {
    std::string text;
    switch (dialogue_.listen(text, ringsUntil_, relay_.leftover())) {
    case Dialogue::Heard::line: heard(text); break;
    case Dialogue::Heard::silence: ringingEnded(); break;
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
    const int patience = carried ? relay_.watch(line, std::span<pollfd, 2>(&entries[1], 2)) : carrierInterval;
    if (poll(entries.data(), entries.size(), patience) < 0)
        return;
    const Relay::State state = carried          ? relay_.turn(line)
                               : line.carrier() ? Relay::State::talking
                                                : Relay::State::carrierLost;
    if (state == Relay::State::deviceGone || (entries[1].revents & hungUp) != 0)
        deviceGone();
    else if (state == Relay::State::carrierLost)
        disconnected(disconnectedBy::normal);
}

/// Until the program wants something.
void Session::leaveAlone() {
    const int line = phase_ == Phase::gone ? -1 : dialogue_.line().descriptor();
    std::array<pollfd, 2> entries{{{modem_->wake.descriptor(), POLLIN, 0}, {line, 0, 0}}};
    poll(entries.data(), entries.size(), -1);
    if ((entries[1].revents & hungUp) != 0)
        deviceGone();
}

void Session::obey() {
    modem_->wake.clear();
    Requests requests;
    {
        const std::lock_guard guard(switchboard().mutex);
        requests = std::exchange(modem_->requests, {});
    }
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
