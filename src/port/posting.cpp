#include "port/posting.h"

#include <new>
#include <unordered_map>

#include "platform/forked.h"
#include "platform/lasting.h"
#include "platform/message.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "port/lookout.h"
#include "port/watch.h"

namespace brisolt {

namespace {

Mutex registryMutex;
std::atomic<uint32_t> wishes{0}; ///< how often a port has looked for somebody who is not there
thread_local Lookout* own = nullptr;
thread_local uint32_t wishesSeen = 0;

/// By thread; empty where a port would like one.
using Registry = std::unordered_map<uint32_t, std::shared_ptr<Lookout>>;
Lasting<Registry>& lastingRegistry() noexcept {
    static Lasting<Registry> only;
    return only;
}

void beginAnew() noexcept {
    registryMutex.beginAnew();
    lastingRegistry().beginAnew();
    own = nullptr;
}

Registry& registry() noexcept {
    return *lastingRegistry();
}

/// That thread's lookout. Null as yet: the thread will see that it is wished for.
std::shared_ptr<Lookout> lookoutOf(uint32_t thread) {
    forked::beginAnewInChild(beginAnew);
    MutexLock guard(registryMutex);
    auto [found, fresh] = registry().try_emplace(thread);
    if (fresh)
        wishes.fetch_add(1);
    return found->second;
}

void endOwn() noexcept {
    if (own == nullptr)
        return;
    std::shared_ptr<Lookout> ended;
    {
        MutexLock guard(registryMutex);
        auto found = registry().find(own->thread);
        ended = std::move(found->second);
        registry().erase(found);
    }
    own = nullptr;
    ended->end();
}

thread_local thread::End ending{endOwn};

/// The calling thread's lookout, once some port wishes for one; null: none does, or it cannot be. Then the
/// ports' own threads go on watching, and the thread tries again with its next wait.
Lookout* ownLookout() noexcept try {
    uint32_t now = wishes.load(std::memory_order_acquire);
    if (own != nullptr || now == wishesSeen)
        return own;
    MutexLock guard(registryMutex);
    auto wish = registry().find(thread::currentId());
    if (wish != registry().end()) {
        auto made = std::make_shared<Lookout>(wish->first);
        if (!made->usable() || !thread::atEnd(ending))
            return nullptr;
        own = made.get();
        wish->second = std::move(made);
    }
    wishesSeen = now;
    return own;
} catch (const std::bad_alloc&) {
    return nullptr;
}

/// Sleeps until the thread may have a message; what its ports have received makes some.
void sleepWatching(Wake& wake, const clock::Deadline& until) noexcept {
    if (Lookout* lookout = ownLookout(); lookout != nullptr) {
        lookout->watch(wake, until.realMillisecondsLeft());
    } else {
        wake.sleep(until.realMillisecondsLeft());
        wake.finish();
    }
}

} // namespace

int32_t awaitMessage(ComHostMessage* message, int32_t milliseconds) noexcept {
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
        sleepWatching(wake, until);
    }
}

void offerToWatch(const Port& port) noexcept try {
    if (uint32_t thread = thread::currentId(); soleTarget(*port.record) == thread) {
        lookoutOf(thread);
        ownLookout();
    }
} catch (const std::bad_alloc&) { // then the port's own thread goes on watching
}

bool watchedHere(const Port& port) noexcept {
    uint32_t thread = port.watchedBy.load(std::memory_order_relaxed);
    return thread != 0 && thread == thread::currentId();
}

bool Posting::sentBack() const noexcept {
    return lookout_ != nullptr && port_.watchedBy == 0;
}

void Posting::join(uint32_t thread) noexcept try {
    int32_t descriptor = port_.device.descriptor();
    if (descriptor < 0)
        return;
    lookout_ = lookoutOf(thread);
    ticket_ = lookout_ != nullptr ? lookout_->admit(port_, descriptor) : 0;
    if (ticket_ == 0)
        lookout_.reset();
} catch (const std::bad_alloc&) { // the port goes on by itself
}

void Posting::leave() noexcept {
    if (lookout_ == nullptr)
        return;
    lookout_->dismiss(ticket_);
    lookout_.reset();
}

Stance Posting::choose() noexcept {
    uint32_t thread = mayWatch(port_);
    bool back = sentBack();
    if (lookout_ != nullptr && (back || lookout_->thread != thread || lookout_->gone()))
        leave();
    // A while on its own, whatever it was sent back for; a device that has gone, until it shows life.
    onItsOwn_ =
        back && port_.deviceGone == 0 ? clock::Deadline::in(receivingLease) : clock::Deadline::never();
    if (lookout_ == nullptr && thread != 0 && !back)
        join(thread);
    return lookout_ == nullptr ? Stance::watching : Stance::relieved;
}

bool Posting::crossed() const noexcept {
    return lookout_ != nullptr && (sentBack() || lookout_->gone());
}

} // namespace brisolt
