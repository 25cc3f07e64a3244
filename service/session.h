// A modem's thread, from the opening of its line to the end of the last call on it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "dialogue.h"
#include "relay.h"
#include "switchboard.h"

namespace brisolt::service {

class Session {
public:
    explicit Session(std::shared_ptr<Modem> modem);
    void run() noexcept;

private:
    using Clock = Dialogue::Clock;
    enum class Phase {
        idle,
        dialling,
        answering,
        talking,
        lent, ///< the call is over, and its program may still read from the line
        gone  ///< nothing but the closing is left
    };

    void work();
    bool opened(int32_t result);
    void end() noexcept;

    // Calls (session_calls.cpp)
    void heard(const std::string& text);
    void rang();
    void ringingEnded();
    void place(const std::string& number, int32_t request);
    void answer(int32_t request);
    void begin(Phase phase, const std::string& command, int32_t request);
    void connected();
    void disconnected(uint32_t cause);
    void drop(int32_t request);
    void endCall();
    void deviceGone();
    void report(uint32_t state, uint32_t detail = 0);

    // What happens (session.cpp)
    void listen();
    void talk();
    void leaveAlone();
    void obey();
    bool takeBack();

    std::shared_ptr<Modem> modem_;
    ModemSettings settings_;
    Dialogue dialogue_;
    Relay relay_;
    Phase phase_ = Phase::idle;
    bool closing_ = false;

    uint32_t rings_ = 0;
    bool offered_ = false; ///< the program knows about the caller who rings
    std::optional<Clock::time_point> ringsUntil_;
};

} // namespace brisolt::service
