#include "port/attendance.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "platform/message.h"
#include "platform/thread.h"
#include "platform/watch_set.h"
#include "port/io_round.h"
#include "port/port_table.h"

namespace brisolt {

constexpr uint32_t itsWakeTag = 0; ///< no port has this number

/// One thread's attendance. Kept by the thread and by the I/O threads of its ports.
class Attendant {
public:
    Attendant(uint32_t itsThread, int32_t itsWake) noexcept
        : thread(itsThread),
          usable_(set_.usable() && itsWake >= 0 && set_.add(itsWake, itsWakeTag, WatchSet::Report::always)) {}

    const uint32_t thread;
    SharedWatch watch;            ///< its waits, as the guardian sees them
    std::atomic<int32_t> away{0}; ///< it has not waited for long: the ports' own threads watch
    std::atomic<int32_t> gone{0}; ///< it has ended

    bool usable() const noexcept { return usable_; }
    bool admit(Port& port, int32_t descriptor) noexcept;
    void dismiss(Port& port) noexcept;
    /// A port that is not open any more; its thread has not left yet.
    void dismissClosed(int32_t number) noexcept;
    /// True for one of the ports.
    bool isGuardian(const Port& port) noexcept;
    void wakeGuardian() noexcept;
    void wakePorts() noexcept;
    /// The thread's wait: the ports that have something, by number.
    std::span<WatchSet::Event> wait(std::span<WatchSet::Event> events, int32_t realMilliseconds) noexcept;

private:
    struct Member {
        const Port* port;
        uint32_t number;
        int32_t descriptor;
        std::shared_ptr<Wake> wake;
    };
    template <class Which> void remove(Which which) noexcept;

    std::mutex mutex_;
    std::vector<Member> members_; ///< the first is the guardian
    WatchSet set_;
    const bool usable_;
};

bool Attendant::admit(Port& port, int32_t descriptor) noexcept try {
    std::scoped_lock guard(mutex_);
    auto number = static_cast<uint32_t>(port.number.load());
    members_.push_back({&port, number, descriptor, port.threadWake});
    if (!set_.add(descriptor, number, WatchSet::Report::news)) {
        members_.pop_back();
        return false;
    }
    port.attendedBy = thread;
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

template <class Which> void Attendant::remove(Which which) noexcept {
    auto found = std::find_if(members_.begin(), members_.end(), which);
    if (found == members_.end())
        return;
    set_.remove(found->descriptor);
    bool wasGuardian = found == members_.begin();
    members_.erase(found);
    if (wasGuardian && !members_.empty())
        members_.front().wake->wake();
}

void Attendant::dismiss(Port& port) noexcept {
    std::scoped_lock guard(mutex_);
    remove([&port](const Member& member) { return member.port == &port; });
    port.attendedBy = 0;
}

void Attendant::dismissClosed(int32_t number) noexcept {
    std::scoped_lock guard(mutex_);
    remove([number](const Member& member) { return member.number == static_cast<uint32_t>(number); });
}

bool Attendant::isGuardian(const Port& port) noexcept {
    std::scoped_lock guard(mutex_);
    return !members_.empty() && members_.front().port == &port;
}

void Attendant::wakeGuardian() noexcept {
    std::scoped_lock guard(mutex_);
    if (!members_.empty())
        members_.front().wake->wake();
}

void Attendant::wakePorts() noexcept {
    std::scoped_lock guard(mutex_);
    for (const Member& member : members_)
        member.wake->wake();
}

std::span<WatchSet::Event> Attendant::wait(std::span<WatchSet::Event> events,
                                           int32_t realMilliseconds) noexcept {
    watch.begun.fetch_add(1);
    watch.watchers.fetch_add(1);
    if (watch.thread.load() == ThreadWatch::onDevice)
        wakeGuardian();
    auto ready = set_.wait(events, realMilliseconds);
    watch.watchers.fetch_sub(1);
    if (watch.thread.load() == ThreadWatch::parked)
        wakeGuardian();
    return ready;
}

namespace {

std::mutex registryMutex;
std::atomic<bool> wanted{false}; ///< a port has somebody to attend to it
thread_local Attendant* own = nullptr;

using Registry = std::unordered_map<uint32_t, std::shared_ptr<Attendant>>;
Registry& registry() {
    static Registry& only = *new Registry; // never destroyed: threads use it while the program ends
    return only;
}

std::shared_ptr<Attendant> attendantOf(uint32_t thread) noexcept {
    wanted = true;
    std::scoped_lock guard(registryMutex);
    auto found = registry().find(thread);
    return found == registry().end() ? nullptr : found->second;
}

void endOwn(void*) noexcept {
    std::shared_ptr<Attendant> ended;
    {
        std::scoped_lock guard(registryMutex);
        auto found = registry().find(own->thread);
        ended = std::move(found->second);
        registry().erase(found);
    }
    own = nullptr;
    ended->gone = 1;
    ended->wakePorts();
}

/// The calling thread's attendant, once some port wants one; null: nobody does, or it cannot be.
Attendant* ownAttendant(const Wake& wake) noexcept try {
    if (own != nullptr || !wanted)
        return own;
    auto made = std::make_shared<Attendant>(thread::currentId(), wake.descriptor());
    if (!made->usable())
        return nullptr;
    std::scoped_lock guard(registryMutex);
    registry()[made->thread] = made;
    own = made.get();
    thread::atEnd(endOwn, nullptr);
    return own;
} catch (const std::bad_alloc&) {
    return nullptr;
}

/// The thread that is all a port notifies; 0: it has others to tell, or nobody.
uint32_t soleTarget(const PortRecord& record) noexcept {
    if (record.anyCharCallback.load() || record.onCharCallback.load() || record.onStringCallback.load() ||
        record.anyCharWindow != 0 || record.onCharWindow != 0 || record.onStringWindow != 0)
        return 0;
    uint32_t sole = 0;
    for (uint32_t thread :
         {record.anyCharThread.load(), record.onCharThread.load(), record.onStringThread.load()}) {
        if (thread != 0 && sole != 0 && thread != sole)
            return 0;
        sole = thread != 0 ? thread : sole;
    }
    return sole;
}

/// Who may attend to the port as it is now.
uint32_t mayAttend(const Port& port) noexcept {
    const PortRecord& record = *port.record;
    bool plain = port.threaded() && record.threadSleep == 0 && record.suspended != 1 && !port.ending();
    return plain ? soleTarget(record) : 0;
}

void serve(Attendant& attendant, const WatchSet::Event& event) noexcept {
    auto number = static_cast<int32_t>(event.tag);
    HeldPort port(number);
    if (!port) {
        attendant.dismissClosed(number);
        return;
    }
    if (!event.trouble && mayAttend(*port) == attendant.thread && tellFromDevice(*port))
        return;
    port->deviceGone = event.trouble ? 1 : 0;
    attendant.dismiss(*port);
    port->wakeThread();
}

/// Sleeps until the thread may have a message; what its ports have received makes some.
void sleepAttending(Wake& wake, const clock::Deadline& until) noexcept {
    Attendant* attendant = ownAttendant(wake);
    if (attendant == nullptr) {
        wake.sleep(until.realMillisecondsLeft());
        wake.finish();
        return;
    }
    std::array<WatchSet::Event, 64> events;
    auto ready = attendant->wait(events, wake.patience(until.realMillisecondsLeft()));
    wake.finish(); // before the messages are posted: to a thread that is awake that is cheap
    for (const WatchSet::Event& event : ready)
        if (event.tag != itsWakeTag)
            serve(*attendant, event);
}

} // namespace

int32_t awaitMessage(ComHostMessage* message, int32_t milliseconds) noexcept try {
    if (message == nullptr)
        return 0;
    if (int32_t result = message::next(*message)) // one that is there costs no look at the clock
        return result;
    auto until = milliseconds < 0 ? clock::Deadline::never()
                                  : clock::Deadline::in(static_cast<uint32_t>(milliseconds));
    Wake& wake = *Wake::ofThisThread();
    for (;;) {
        wake.prepare();
        int32_t result = message::next(*message);
        if (result != 0 || until.passed()) {
            wake.finish();
            return result;
        }
        sleepAttending(wake, until);
    }
} catch (const std::bad_alloc&) {
    return 0;
}

void offerAttendance(const Port& port) noexcept try {
    if (soleTarget(*port.record) != thread::currentId())
        return;
    wanted = true;
    ownAttendant(*Wake::ofThisThread());
} catch (const std::bad_alloc&) { // then the port's own thread goes on watching
}

bool attendedHere(const Port& port) noexcept {
    uint32_t thread = port.attendedBy.load(std::memory_order_relaxed);
    return thread != 0 && thread == thread::currentId();
}

bool Attendance::sentBack() const noexcept {
    return attendant_ != nullptr && port_.attendedBy == 0;
}

void Attendance::join(uint32_t thread) noexcept {
    int32_t descriptor = port_.device.descriptor();
    if (descriptor < 0)
        return;
    attendant_ = attendantOf(thread);
    if (attendant_ != nullptr && !attendant_->admit(port_, descriptor))
        attendant_.reset();
}

void Attendance::leave() noexcept {
    if (attendant_ == nullptr)
        return;
    awake();
    attendant_->dismiss(port_);
    attendant_.reset();
}

ThreadWatch Attendance::choose() noexcept {
    uint32_t thread = mayAttend(port_);
    bool back = sentBack();
    if (attendant_ != nullptr && (back || attendant_->thread != thread || attendant_->gone != 0))
        leave();
    // A while on its own, whatever it was sent back for; a device that has gone, until it shows life.
    onItsOwn_ =
        back && port_.deviceGone == 0 ? clock::Deadline::in(receivingLease) : clock::Deadline::never();
    if (attendant_ == nullptr && thread != 0 && !back)
        join(thread);
    if (attendant_ == nullptr)
        return ThreadWatch::onDevice;
    guardian_ = attendant_->isGuardian(port_);
    if (!guardian_)
        return attendant_->away != 0 ? ThreadWatch::onDevice : ThreadWatch::parked;
    ThreadWatch choice = share_.choose(attendant_->watch);
    attendant_->watch.thread = choice;
    int32_t away = choice == ThreadWatch::onDevice ? 1 : 0;
    if (attendant_->away.exchange(away) != away)
        attendant_->wakePorts();
    return choice;
}

bool Attendance::crossed(ThreadWatch choice) const noexcept {
    if (attendant_ == nullptr)
        return false;
    return sentBack() || (guardian_ && WatchShare::crossed(choice, attendant_->watch));
}

void Attendance::awake() noexcept {
    if (guardian_)
        attendant_->watch.thread = ThreadWatch::away;
    guardian_ = false;
}

} // namespace brisolt
