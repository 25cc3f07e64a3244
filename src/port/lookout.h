// A lookout: one thread of the program that waits for messages, the ports that it watches over meanwhile, and
// its deputy, a thread of the library's that watches while it stays away (watch.h tells the whole). The deputy
// sleeps while the thread waits, and for a moment after; it is started with the first port.
//
// Ports come and go under a ticket, one for each stay: what the host reports of an earlier stay is nobody's.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/mutex.h"
#include "platform/wake.h"
#include "platform/watch_set.h"
#include "port/port.h"

namespace brisolt {

/// The thread that may watch over the port as it is now: it is all that the port notifies, and the port's
/// rounds have no pace. 0: none may.
uint32_t mayWatch(const Port& port) noexcept;
/// The thread that is all that the port notifies; 0: it has others to tell, or nobody.
uint32_t soleTarget(const PortRecord& record) noexcept;

class Lookout : public std::enable_shared_from_this<Lookout> {
public:
    explicit Lookout(uint32_t itsThread) noexcept : thread(itsThread), deputy_(Wake::make()) {}

    const uint32_t thread;

    /// False when the host has no descriptors left for it.
    bool usable() const noexcept { return set_.usable() && deputy_ != nullptr; }
    bool gone() const noexcept { return gone_.load() != 0; }
    /// The port's ticket; 0: it has to look after itself.
    uint32_t admit(Port& port, int32_t descriptor) noexcept;
    void dismiss(uint32_t ticket) noexcept;

    /// The thread's wait for at most that long (real milliseconds, -1: no limit). What its ports have received
    /// meanwhile is told.
    void watch(Wake& wake, int32_t realMilliseconds) noexcept;
    /// The thread ends.
    void end() noexcept;

private:
    struct Stay {
        Port* port;
        int32_t descriptor;
    };
    static void deputyMain(void* argument);
    bool startDeputy() noexcept WITH_LOCK(mutex_);
    void standIn() noexcept;
    Port* hold(uint32_t ticket) noexcept;
    void serveReady() noexcept;
    void serve(const WatchSet::Event& event) noexcept;

    Mutex mutex_; ///< the stays and the start of the deputy
    std::unordered_map<uint32_t, Stay> stays_ GUARDED_BY(mutex_);
    uint32_t lastTicket_ GUARDED_BY(mutex_) = 0;
    bool deputyStarted_ GUARDED_BY(mutex_) = false;
    WatchSet set_;
    DirectionWatch waits_; ///< the thread's, as the deputy sees them
    std::atomic<int32_t> gone_{0};
    const std::shared_ptr<Wake> deputy_;
};

} // namespace brisolt
