#include "platform/wake.h"

#include <new>
#include <utility>

#include <cerrno>

#include <poll.h>
#include <sys/eventfd.h>

#include "platform/forked.h"
#include "platform/lasting.h"
#include "platform/parking.h"
#include "platform/posix/brake.h"
#include "platform/posix/gated_poll.h"
#include "platform/thread.h"

namespace brisolt {

namespace {

constexpr int32_t restTime = 5; // real milliseconds; a call ends it

using Held = std::shared_ptr<Wake>;

thread_local Held* own = nullptr;
alignas(Held) thread_local std::byte place[sizeof(Held)]; // of what `own` points to
thread_local thread::End ending{[] {
    if (own) // not a child's, whose parent had it
        std::exchange(own, nullptr)->~Held();
}};

} // namespace

const std::shared_ptr<Wake>& Wake::ofThisThread() noexcept {
    if (own)
        return *own;
    std::shared_ptr<Wake> made;
    try {
        made = std::make_shared<Wake>();
    } catch (const std::bad_alloc&) {
        return blindOne();
    }
    return giveThisThread(std::move(made)) ? *own : blindOne();
}

// Shared by all threads that have no better: it remembers nothing.
struct Wake::Blind {
    Wake wake{-1};
    std::shared_ptr<Wake> shared{std::shared_ptr<Wake>(), &wake};
};

const std::shared_ptr<Wake>& Wake::blindOne() noexcept {
    static Lasting<Blind> only;
    return (*only).shared;
}

std::shared_ptr<Wake> Wake::make() noexcept try {
    auto made = std::make_shared<Wake>();
    return made->descriptor() < 0 ? nullptr : made;
} catch (...) {
    return nullptr;
}

bool Wake::giveThisThread(std::shared_ptr<Wake> wake) noexcept {
    if (!thread::atEnd(ending))
        return false;
    own = ::new (place) Held(std::move(wake));
    forked::beginAnewInChild([] { own = nullptr; }); // a child has its parent's descriptor
    return true;
}

// The changes of the state order what waker and sleeper do: a waker that comes before the sleeper's
// exchange in prepare() has made its change before, so the sleeper sees it; a later one finds `asleep`
// and writes the descriptor.
void Wake::wake() noexcept {
    uint32_t before = state_.fetch_or(called, std::memory_order_acq_rel);
    if (before == asleep)
        signal_.set();
    else if (before == parked)
        parking::unparkAll(state_);
}

void Wake::sleep(int32_t realMilliseconds) noexcept {
    if (blind_) {
        brake(realMilliseconds);
        return;
    }
    uint32_t expected = asleep;
    if (state_.compare_exchange_strong(expected, parked, std::memory_order_acq_rel))
        parking::park(state_, parked, realMilliseconds);
}

bool Wake::sleepInterruptibly(int32_t realMilliseconds) noexcept {
    pollfd self{.fd = descriptor(), .events = POLLIN, .revents = 0};
    return gatedPoll({&self, 1}, patience(realMilliseconds)) < 0 && errno == EINTR;
}

void Wake::prepare() noexcept {
    if (blind_)
        return;
    if (owed_ > 0)
        drain();
    if (state_.exchange(asleep, std::memory_order_acq_rel) == (asleep | called))
        ++owed_; // prepared twice, and called in between
}

bool Wake::woken() const noexcept {
    return (state_.load(std::memory_order_acquire) & called) != 0;
}

void Wake::finish() noexcept {
    if (blind_)
        return;
    if (state_.exchange(awake, std::memory_order_acq_rel) == (asleep | called))
        ++owed_;
    if (owed_ > 0)
        drain();
}

// Of all wakers of one sleep exactly one writes, but it may do so only after the sleeper has gone on. The
// sleeper therefore counts the writes that it has not read yet; a late one ends its next sleep early, once.
void Wake::drain() noexcept {
    eventfd_t written = 0;
    if (descriptor() < 0)
        owed_ = 0;
    else if (eventfd_read(descriptor(), &written) == 0)
        owed_ -= static_cast<int64_t>(written);
}

bool Wake::restAfterAnother() noexcept {
    if (blind_ || ++causeless_ < 3)
        return false;
    causeless_ = 2; // the next one that ends for nothing leads here, too
    sleep(restTime);
    return true;
}

int32_t Wake::patience(int32_t realMilliseconds) const noexcept {
    return descriptor() < 0 ? blindly(realMilliseconds) : realMilliseconds;
}

} // namespace brisolt
