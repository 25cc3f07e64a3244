// A modem's thread, from the opening of its line to the end of the last call on it.
#pragma once

#include <memory>
#include <string_view>

#include "dialogue.h"
#include "relay.h"
#include "switchboard.h"

namespace brisolt::service {

class Session {
public:
    /// With the switchboard's lock held.
    explicit Session(std::shared_ptr<Modem> modem);
    void run() noexcept;

private:
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
    void heard(std::string_view text);
    void rang();
    void ringingEnded();
    void place(std::string_view number, int32_t request);
    void answer(int32_t request);
    void begin(Phase phase, std::string_view command, std::string_view number, int32_t request);
    void connected();
    void disconnected(uint32_t cause);
    void hungUpThere();
    void drop(int32_t request);
    void endCall();
    void deviceGone();
    void report(uint32_t state);

    // What happens (session.cpp)
    Until soon() const;
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
    Until ringsUntil_;
    bool announced_ = true; ///< the host knows of all messages
};

} // namespace brisolt::service
