// A port inside an event loop: what comes and goes is told by descriptors, and nothing waits.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <poll.h>

#include "port.h"

/// What has happened on ports, as the message loop of the main thread hears of it.
struct News {
    bool quit = false;    ///< a signal has asked for the end
    uint32_t events = 0;  ///< COM_HOST_EVENT_... of any port that was asked for
    bool devices = false; ///< a device of the machine has come or gone
};
/// Takes all messages that wait. `ComHostMessageDescriptor` tells when there are some.
News takeNews();
/// Lets time pass; false when a signal asks for the end meanwhile.
bool pauseFor(int milliseconds);

class Link : public Port {
public:
    explicit Link(const LineOptions& options) : Link(options, options.device) {}
    Link(const LineOptions& options, const std::string& path);
    ~Link();

    /// What has come, at most `most` bytes; throws Failure when the device is gone and all has been read.
    std::string read(std::size_t most);

    /// Sends in the background, in order, however long the device takes.
    void write(std::string_view bytes);
    /// Bytes that the library has not been given yet.
    std::size_t unsent();
    /// Nothing more is to be written now: from here on `allSent` tells whether the last bit has left.
    void finishWriting();
    bool allSent();
    /// Throws away what has not been sent.
    void discard();

    /// Adds what wakes the loop: messages (bytes that have come, events, signals), and room or the end of a
    /// drain. `settle` takes note of the latter behind the poll.
    void watch(std::vector<pollfd>& entries) const;
    void settle() const;

    /// Sends what is queued, for at most that long, and closes. True when all has left.
    bool end(int milliseconds);

private:
    void send();
    void stopSending();
    void wake() const;

    int wake_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string queue_;        ///< not yet handed to the library
    std::size_t underWay_ = 0; ///< of its front, what the library is being given
    bool finish_ = false, sent_ = false, stop_ = false;
    std::thread sender_;
};
