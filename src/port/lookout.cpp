#include "port/lookout.h"

#include <array>
#include <new>

#include "platform/mutex.h"
#include "platform/thread.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/watch.h"

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

uint32_t mayWatch(const Port& port) noexcept {
    const PortRecord& record = *port.record;
    // Nor a port whose device may be another one in a moment, or whose descriptor is the program's to watch.
    bool plain = port.threaded() && record.threadSleep == 0 && record.suspended != 1 && !port.ending() &&
                 !port.device.mayChange() && port.byDescriptor == 0;
    return plain ? soleTarget(record) : 0;
}

// ---- coming and going

uint32_t Lookout::admit(Port& port, int32_t descriptor) noexcept try {
    MutexLock guard(mutex_);
    if (gone() || !startDeputy())
        return 0;
    lastTicket_ = lastTicket_ == UINT32_MAX ? 1 : lastTicket_ + 1;
    auto [stay, fresh] = stays_.try_emplace(lastTicket_, Stay{.port = &port, .descriptor = descriptor});
    if (!fresh)
        return 0;
    port.watchedBy = thread; // before its first event
    if (!set_.add(descriptor, lastTicket_)) {
        port.watchedBy = 0;
        stays_.erase(stay);
        return 0;
    }
    return lastTicket_;
} catch (const std::bad_alloc&) {
    return 0;
}

void Lookout::dismiss(uint32_t ticket) noexcept {
    MutexLock guard(mutex_);
    auto found = stays_.find(ticket);
    if (found == stays_.end())
        return;
    set_.remove(found->second.descriptor);
    found->second.port->watchedBy = 0;
    stays_.erase(found);
}

/// The port behind the ticket, with a hold; null when its stay is over.
Port* Lookout::hold(uint32_t ticket) noexcept {
    MutexLock guard(mutex_);
    auto found = stays_.find(ticket);
    return found != stays_.end() && table::tryHold(*found->second.port) ? found->second.port : nullptr;
}

// ---- serving

// A port that somebody else is busy with would keep all others waiting: it goes back, too.
void Lookout::serve(const WatchSet::Event& event) noexcept {
    HeldPort port(hold(event.tag));
    const auto isThere = [&port] { return port->device.state() == COM_HOST_DEVICE_THERE; };
    if (!port || (!event.trouble && mayWatch(*port) == thread && tellFromDevice(*port) && isThere()))
        return;
    port->deviceGone = event.trouble || !isThere() ? 1 : 0;
    dismiss(event.tag);
    port->wakeThread();
}

void Lookout::serveReady() noexcept {
    std::array<WatchSet::Event, 64> events;
    for (const WatchSet::Event& event : set_.collect(events))
        serve(event);
}

void Lookout::watch(Wake& wake, int32_t realMilliseconds) noexcept {
    if (waits_.callerBegins())
        deputy_->wake();
    bool ready = set_.wait(wake.descriptor(), wake.patience(realMilliseconds));
    if (waits_.callerEnds())
        deputy_->wake();
    wake.finish(); // before messages are posted: to a thread that is awake that is cheap
    if (ready)
        serveReady();
}

// ---- the deputy

bool Lookout::startDeputy() noexcept {
    if (deputyStarted_)
        return true;
    auto* self = new (std::nothrow) std::shared_ptr<Lookout>(weak_from_this().lock());
    deputyStarted_ = self != nullptr && thread::start(deputyMain, self, "brisolt-watch");
    if (!deputyStarted_)
        delete self;
    return deputyStarted_;
}

void Lookout::deputyMain(void* argument) {
    const std::unique_ptr<std::shared_ptr<Lookout>> self(static_cast<std::shared_ptr<Lookout>*>(argument));
    (*self)->standIn();
}

void Lookout::standIn() noexcept {
    ThreadShare share(receivingLease);
    while (!gone()) {
        deputy_->prepare();
        Stance choice = share.choose(waits_);
        waits_.stance = choice;
        bool ready = false;
        if (gone() || ThreadShare::crossed(choice, waits_)) {
            // look again
        } else if (choice == Stance::watching) {
            ready = set_.wait(deputy_->descriptor(), -1);
        } else {
            deputy_->sleep(choice == Stance::standby ? share.standbyUntil().realMillisecondsLeft() : -1);
        }
        waits_.stance = Stance::busy;
        deputy_->finish();
        if (ready)
            serveReady();
    }
}

void Lookout::end() noexcept {
    gone_ = 1;
    deputy_->wake();
    MutexLock guard(mutex_);
    for (const auto& [ticket, stay] : stays_)
        stay.port->wakeThread();
}

} // namespace brisolt
