// A modem's socket in the wall: calls in and out, one at a time.
//
// A call is a TCP connection on the loopback address, and lasts as long as it does. The two modems say a few
// lines to each other, then whatever comes are the bytes of the program at the other end:
//     caller                     called
//     CALL number of the caller
//                                RING             it is ringing there; or BUSY, and the end
//                                ANSWER rate      picked up, as a modem that can do this rate
//     CARRIER rate               the rate of the connection; not said by a caller who wants no data
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>

#include "descriptor.h"
#include "exchange.h"

namespace simulated {

enum class Call {
    none,
    incoming,  ///< somebody calls us
    answered,  ///< and we have picked up; no carrier yet
    calling,   ///< we call
    ringing,   ///< it rings there
    busy,      ///< busy there
    refused,   ///< nobody has the number, or the other end hung up before it answered
    pickedUp,  ///< they have answered; no carrier yet
    connected, ///< bytes go both ways
    lost       ///< the other end has gone
};

class Telephone {
public:
    /// Listens, and takes the number unless it is empty. Throws std::runtime_error.
    Telephone(Exchange& exchange, std::string number);
    Telephone(const Telephone&) = delete;
    Telephone& operator=(const Telephone&) = delete;
    ~Telephone();

    /// Lets what has arrived have its effect. While `engaged`, callers find us busy.
    void turn(bool engaged);
    Call call() const { return call_; }
    /// The number at the other end.
    const std::string& other() const { return other_; }
    int rate() const { return rate_; } ///< of the connection

    void dial(const std::string& number);
    /// To a caller who has been picked up, or will be: we want a connection of at most that rate.
    void wantData(int rate);
    void answer(int rate);
    /// Ends the call.
    void hangUp();
    /// Cuts the line, as a storm would.
    void cut();

    /// Bytes taken, at most what there is room for.
    std::size_t send(std::string_view bytes);
    std::string receive(std::size_t most);
    /// While bytes are not asked for: whether the other end has hung up behind them.
    void noticeLoss();

    /// Adds what to poll for news of calls, and during one, if wanted, for bytes, room, or its end.
    void watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom, bool forLoss) const;

private:
    void acceptCallers(bool engaged);
    void say(const std::string& line);
    bool hear(std::string& line);
    void obey(const std::string& line);
    void offerCarrier();

    Exchange& exchange_;
    std::string number_;
    Descriptor listener_;
    Descriptor socket_;
    Call call_ = Call::none;
    std::string other_;
    std::string heard_;  ///< a line that is not whole yet
    int wantedRate_ = 0; ///< as a caller; 0: no data
    int otherRate_ = 0;
    int rate_ = 0;
};

} // namespace simulated
