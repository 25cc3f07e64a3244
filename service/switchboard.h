// Who has which line and which call: the state that the entry points, the modems' threads and the delivery of
// messages share. All of it is guarded by one lock, under which nothing waits.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "profile.h"
#include "telephony/service_records.h"
#include "waiting.h"

namespace brisolt::service {

struct Call {
    uint32_t handle = 0; ///< 0: there is none
    uint32_t state = callState::idle;
    uint32_t detail = 0;
    bool dropping = false; ///< its end has been asked for
    bool isOver() const { return handle == 0 || state == callState::idle; }
};

/// What the program wants of a modem's thread.
struct Requests {
    std::optional<std::string> dial;
    bool answer = false, drop = false, close = false;
    bool handedOver = false; ///< it has got its end of the call
    bool portOpen = false;   ///< and has made a port of it
    int32_t identifier = 0;  ///< of the request, for its reply
    bool aboutCall() const { return dial || answer || drop; }
};

/// Of a modem's thread.
enum class Life {
    none,
    opening, ///< looks whether the modem answers
    open,
    closing ///< the line is closed; an end may have to be put to a call
};

/// A modem of the profile, and the line and the call on it: one at a time.
struct Modem {
    uint32_t identifier = 0;
    ModemSettings settings;

    Life life = Life::none;
    std::optional<int32_t> opened; ///< how the opening went
    bool gone = false;             ///< the device has been taken away
    bool busy = false;             ///< a call is on, or is being ended
    std::thread thread;
    Wake wake;
    Requests requests;

    uint32_t application = 0;
    uint32_t line = 0; ///< 0: not open
    uintptr_t instance = 0;
    uint32_t privileges = 0;
    uint32_t lineStates = 0; ///< those that are reported
    Call call;
    int handOver = -1; ///< the descriptor of a connected call, which whoever asks gets a copy of
};

/// A message on its way to the program.
struct Event {
    uint32_t application = 0, line = 0, call = 0; ///< whose it is; not delivered when that has gone
    std::shared_ptr<const Modem> modem;
    uint32_t device = 0, message = 0; ///< as the callback gets them
    uintptr_t p1 = 0, p2 = 0, p3 = 0;
};

struct Switchboard {
    std::mutex mutex;
    std::condition_variable changed; ///< of a modem: `opened` or `life`
    std::map<uint32_t, Callback> applications;
    std::vector<std::shared_ptr<Modem>> modems; ///< by identifier
    std::list<Event> events;
    std::list<Event> spareEvents; ///< for what has to be told when memory is short
    bool announced = true;        ///< the window knows of the events
    int32_t window = 0;           ///< of all messages

    /// A handle or a request that nothing else has had.
    uint32_t newHandle() { return ++lastHandle_; }
    int32_t newRequest() { return lastRequest_ = lastRequest_ % highestRequest + 1; }

private:
    static constexpr int32_t highestRequest = 0x7FFFFFFF - 1;
    uint32_t lastHandle_ = 0x1000;
    int32_t lastRequest_ = 0;
};

Switchboard& switchboard();

// With the lock held. Null when there is none.
std::shared_ptr<Modem> modemOfLine(uint32_t line);
std::shared_ptr<Modem> modemOfCall(uint32_t call);

} // namespace brisolt::service
