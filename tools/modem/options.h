// What a simulator can be told at its start, and what it tells about itself.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "clock.h"

namespace simulated {

struct Options {
    std::string number = {}; ///< by which others call it; empty: it can call only
    int rate = 33600;        ///< of its connections, unless the other modem is slower
    int timeScale = 1;       ///< its time runs that many times as fast as ours
    /// Command line (with or without AT) that has been stored with &W: it holds from the start and after a Z.
    std::string stored = {};
    bool dialtone = true;        ///< false: nobody has plugged it into the wall
    Milliseconds training{1000}; ///< from picking up to CONNECT
    Milliseconds ringOn{2000}, ringOff{4000};
    std::function<void(std::string_view)> log = {}; ///< told what happens, on the simulator's thread
    std::function<void()> failed = {}; ///< told on that thread, last of all, when something has ended it
};

enum class Phase {
    idle,      ///< on hook, takes commands
    offHook,   ///< takes commands
    dialling,  ///< waits for a dial tone, or dials
    calling,   ///< waits for an answer
    answering, ///< has picked up and waits for the caller's carrier
    training,
    online, ///< bytes go both ways
    escaped ///< connected, takes commands
};
std::string_view nameOf(Phase phase);

struct Status {
    Phase phase = Phase::idle;
    bool ringing = false;   ///< somebody calls
    int rings = 0;          ///< S1
    bool carrier = false;   ///< as the program sees it
    bool dtr = false;       ///< the program's
    int rate = 0;           ///< of the connection, 0 without
    std::string other = {}; ///< the number at the other end of the call
};

} // namespace simulated
