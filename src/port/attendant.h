// One thread's attendance: the ports that it serves while it waits for messages, and the watchman, a thread of
// the library's that serves them while it stays away. The watchman sleeps while the thread waits, and for a
// moment after; the first is started with the first port.
//
// Ports come and go under a ticket, one for each stay: what the host reports of an earlier stay is nobody's.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "platform/wake.h"
#include "platform/watch_set.h"
#include "port/port.h"

namespace brisolt {

/// The thread that may attend to the port as it is now: it is all that the port notifies, and the port's
/// rounds have no pace. 0: none may.
uint32_t mayAttend(const Port& port) noexcept;
/// The thread that is all that the port notifies; 0: it has others to tell, or nobody.
uint32_t soleTarget(const PortRecord& record) noexcept;

class Attendant : public std::enable_shared_from_this<Attendant> {
public:
    explicit Attendant(uint32_t itsThread) noexcept : thread(itsThread), watchman_(Wake::make()) {}

    const uint32_t thread;

    /// False when the host has no descriptors left for it.
    bool usable() const noexcept { return set_.usable() && watchman_ != nullptr; }
    bool gone() const noexcept { return gone_.load() != 0; }
    /// The port's ticket; 0: it has to look after itself.
    uint32_t admit(Port& port, int32_t descriptor) noexcept;
    void dismiss(uint32_t ticket) noexcept;

    /// The thread's wait for at most that long (real milliseconds, -1: no limit). What its ports have received
    /// meanwhile is told.
    void attend(Wake& wake, int32_t realMilliseconds) noexcept;
    /// The thread ends.
    void end() noexcept;

private:
    struct Stay {
        Port* port;
        int32_t descriptor;
    };
    static void watchmanMain(void* argument);
    bool startWatchman() noexcept;
    void watch() noexcept;
    Port* hold(uint32_t ticket) noexcept;
    void serveReady() noexcept;
    void serve(const WatchSet::Event& event) noexcept;

    std::mutex mutex_; ///< the stays and the start of the watchman
    std::unordered_map<uint32_t, Stay> stays_;
    uint32_t lastTicket_ = 0;
    bool watchmanStarted_ = false;
    WatchSet set_;
    SharedWatch waits_; ///< the thread's, as the watchman sees them
    std::atomic<int32_t> gone_{0};
    const std::shared_ptr<Wake> watchman_;
};

} // namespace brisolt
