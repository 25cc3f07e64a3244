#include "platform/wake.h"

#include <utility>

#include <sys/eventfd.h>

#include "platform/parking.h"
#include "platform/posix/thread_end.h"

namespace brisolt {

namespace {

// How long a sleep may last that nobody can end, because the host had no descriptor for us.
constexpr int32_t blindWait = 20;

thread_local std::shared_ptr<Wake>* own = nullptr;

} // namespace

const std::shared_ptr<Wake>& Wake::ofThisThread() {
    if (!own)
        giveThisThread(std::make_shared<Wake>());
    return *own;
}

std::shared_ptr<Wake> Wake::make() noexcept try {
    auto made = std::make_shared<Wake>();
    return made->descriptor() < 0 ? nullptr : made;
} catch (...) {
    return nullptr;
}

void Wake::giveThisThread(std::shared_ptr<Wake> wake) {
    own = new std::shared_ptr<Wake>(std::move(wake));
    atThreadEnd([](void*) { delete std::exchange(own, nullptr); }, nullptr);
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
    uint32_t expected = asleep;
    if (state_.compare_exchange_strong(expected, parked, std::memory_order_acq_rel))
        parking::park(state_, parked, realMilliseconds);
}

void Wake::prepare() noexcept {
    if (owed_ > 0)
        drain();
    if (state_.exchange(asleep, std::memory_order_acq_rel) == (asleep | called))
        ++owed_; // prepared twice, and called in between
}

bool Wake::woken() const noexcept {
    return (state_.load(std::memory_order_acquire) & called) != 0;
}

void Wake::finish() noexcept {
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

int32_t Wake::patience(int32_t realMilliseconds) const noexcept {
    bool blind = descriptor() < 0 && (realMilliseconds < 0 || realMilliseconds > blindWait);
    return blind ? blindWait : realMilliseconds;
}

} // namespace brisolt
