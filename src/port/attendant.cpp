#include "port/attendant.h"

#include <array>
#include <new>

#include "platform/thread.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/watch_share.h"

namespace brisolt {

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

uint32_t mayAttend(const Port& port) noexcept {
    const PortRecord& record = *port.record;
    bool plain = port.threaded() && record.threadSleep == 0 && record.suspended != 1 && !port.ending();
    return plain ? soleTarget(record) : 0;
}

// ---- coming and going

uint32_t Attendant::admit(Port& port, int32_t descriptor) noexcept try {
    std::scoped_lock guard(mutex_);
    if (gone() || !startWatchman())
        return 0;
    lastTicket_ = lastTicket_ == UINT32_MAX ? 1 : lastTicket_ + 1;
    auto [stay, fresh] = stays_.try_emplace(lastTicket_, Stay{.port = &port, .descriptor = descriptor});
    if (!fresh)
        return 0;
    port.attendedBy = thread; // before its first event
    if (!set_.add(descriptor, lastTicket_)) {
        port.attendedBy = 0;
        stays_.erase(stay);
        return 0;
    }
    return lastTicket_;
} catch (const std::bad_alloc&) {
    return 0;
}

void Attendant::dismiss(uint32_t ticket) noexcept {
    std::scoped_lock guard(mutex_);
    auto found = stays_.find(ticket);
    if (found == stays_.end())
        return;
    set_.remove(found->second.descriptor);
    found->second.port->attendedBy = 0;
    stays_.erase(found);
}

/// The port behind the ticket, with a hold; null when its stay is over.
Port* Attendant::hold(uint32_t ticket) noexcept {
    std::scoped_lock guard(mutex_);
    auto found = stays_.find(ticket);
    return found != stays_.end() && table::tryHold(*found->second.port) ? found->second.port : nullptr;
}

// ---- serving

// A port that somebody else is busy with would keep all others waiting: it goes back, too.
void Attendant::serve(const WatchSet::Event& event) noexcept {
    HeldPort port(hold(event.tag));
    if (!port || (!event.trouble && mayAttend(*port) == thread && tellFromDevice(*port)))
        return;
    port->deviceGone = event.trouble ? 1 : 0;
    dismiss(event.tag);
    port->wakeThread();
}

void Attendant::serveReady() noexcept {
    std::array<WatchSet::Event, 64> events;
    for (const WatchSet::Event& event : set_.collect(events))
        serve(event);
}

void Attendant::attend(Wake& wake, int32_t realMilliseconds) noexcept {
    waits_.begun.fetch_add(1);
    waits_.watchers.fetch_add(1);
    if (waits_.thread.load() == ThreadWatch::onDevice)
        watchman_->wake();
    bool ready = set_.wait(wake.descriptor(), wake.patience(realMilliseconds));
    waits_.watchers.fetch_sub(1);
    if (waits_.thread.load() == ThreadWatch::parked)
        watchman_->wake();
    wake.finish(); // before messages are posted: to a thread that is awake that is cheap
    if (ready)
        serveReady();
}

// ---- the watchman

bool Attendant::startWatchman() noexcept {
    if (watchmanStarted_)
        return true;
    auto* self = new (std::nothrow) std::shared_ptr<Attendant>(weak_from_this().lock());
    watchmanStarted_ = self != nullptr && thread::start(watchmanMain, self, "brisolt-watch");
    if (!watchmanStarted_)
        delete self;
    return watchmanStarted_;
}

void Attendant::watchmanMain(void* argument) {
    const std::unique_ptr<std::shared_ptr<Attendant>> self(
        static_cast<std::shared_ptr<Attendant>*>(argument));
    (*self)->watch();
}

void Attendant::watch() noexcept {
    WatchShare share(receivingLease);
    while (!gone()) {
        watchman_->prepare();
        ThreadWatch choice = share.choose(waits_);
        waits_.thread = choice;
        bool ready = false;
        if (gone() || WatchShare::crossed(choice, waits_)) {
            // look again
        } else if (choice == ThreadWatch::onDevice) {
            ready = set_.wait(watchman_->descriptor(), -1);
        } else {
            watchman_->sleep(choice == ThreadWatch::aside ? share.asideUntil().realMillisecondsLeft() : -1);
        }
        waits_.thread = ThreadWatch::away;
        watchman_->finish();
        if (ready)
            serveReady();
    }
}

void Attendant::end() noexcept {
    gone_ = 1;
    watchman_->wake();
    std::scoped_lock guard(mutex_);
    for (const auto& [ticket, stay] : stays_)
        stay.port->wakeThread();
}

} // namespace brisolt
