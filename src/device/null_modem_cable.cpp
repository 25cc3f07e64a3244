#include "device/null_modem_cable.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace brisolt {

namespace {

constexpr uint64_t nanosecondsPerTick = 1'000'000;
constexpr uint64_t never = UINT64_MAX;

} // namespace

NullModemCable::NullModemCable(std::string name) noexcept : name_(std::move(name)), tick_(clock::ticks()) {}

// ---- The ends ----------------------------------------------------------------------------------------

NullModemEnd* NullModemCable::join(bool paced, bool autobaud) noexcept {
    Inside inside(*this);
    auto& place = ends_[0] ? ends_[1] : ends_[0];
    if (place)
        return nullptr;
    place = std::make_unique<NullModemEnd>(*this, paced, autobaud);
    NullModemEnd& end = *place;
    if (const auto& other = ends_[0].get() == &end ? ends_[1] : ends_[0]) {
        end.ring = other->ring;
        end.meet(*other);
        other->meet(end);
    }
    return &end;
}

bool NullModemCable::leave(NullModemEnd& end) noexcept {
    Inside inside(*this);
    if (end.peer != nullptr)
        end.peer->part();
    ends_[ends_[0].get() == &end ? 0 : 1].reset();
    return ends_[0] || ends_[1];
}

void NullModemCable::ring(bool on) noexcept {
    Inside inside(*this);
    for (const auto& end : ends_)
        if (end)
            end->ring = on;
}

// ---- Time and the line -------------------------------------------------------------------------------

/// Lets everything happen that is over by now.
void NullModemCable::advance() noexcept {
    const uint32_t tick = clock::ticks();
    const uint64_t present = now_ + uint64_t{tick - tick_} * nanosecondsPerTick;
    tick_ = tick;
    for (;;) {
        startCharacters();
        NullModemEnd* const sender = firstDue();
        if (sender == nullptr || sender->flight->due > present)
            break;
        now_ = sender->flight->due;
        const uint8_t value = sender->flight->value;
        sender->flight.reset();
        // A line held in break carries nothing else: what is sent then is lost.
        if (sender->peer != nullptr && !sender->breakOn)
            sender->peer->arrive(value);
    }
    now_ = present;
}

void NullModemCable::startCharacters() noexcept {
    const bool paced = (ends_[0] && ends_[0]->paced) || (ends_[1] && ends_[1]->paced);
    for (const auto& end : ends_) {
        if (!end || end->flight)
            continue;
        end->flight = end->nextCharacter();
        if (end->flight)
            end->flight->due = now_ + (paced ? end->characterNanoseconds() : 0);
    }
}

/// The end whose character arrives next. Of two at the same moment an XON or XOFF is the first: where
/// characters take no time, the peer could send all it has before an XOFF otherwise.
NullModemEnd* NullModemCable::firstDue() noexcept {
    const auto before = [](const NullModemEnd::Flight& a, const NullModemEnd::Flight& b) {
        return a.due < b.due || (a.due == b.due && !a.data);
    };
    NullModemEnd* first = nullptr;
    for (const auto& end : ends_)
        if (end && end->flight && (first == nullptr || before(*end->flight, *first->flight)))
            first = end.get();
    return first;
}

uint64_t NullModemCable::nextMoment() noexcept {
    const NullModemEnd* const sender = firstDue();
    return sender == nullptr ? never : sender->flight->due;
}

// ---- Waiting -----------------------------------------------------------------------------------------

namespace {

/// A cancel concerns writes and flushes; a plain wait has its own descriptor to be ended by.
constexpr bool endsOnCancel(uint32_t wanted) {
    return (wanted & ~uint32_t{nullModemReadable | nullModemWritable}) != 0;
}

} // namespace

/// Lets changes take effect and calls the waiting threads that they concern: those whose condition holds,
/// and those that would sleep past the next character.
void NullModemCable::settle() noexcept {
    advance();
    for (const auto& end : ends_)
        if (end)
            end->showReadable();
    const uint64_t next = nextMoment();
    for (Waiter* waiter : waiters_) {
        if (waiter->wasCalled)
            continue;
        const bool ended = waiter->end.cancelled && endsOnCancel(waiter->wanted);
        if (waiter->end.holding(waiter->wanted) == 0 && !ended && next >= waiter->wakesAt)
            continue;
        waiter->wasCalled = true;
        waiter->called.set();
    }
}

uint32_t NullModemCable::wait(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake,
                              clock::Deadline limit) noexcept {
    const uint32_t cancels = end.cancels;
    for (bool woken = false;;) {
        settle();
        const uint32_t held = end.holding(wanted);
        const bool ended = endsOnCancel(wanted) && end.cancelledSince(cancels);
        if (held != 0 || woken || ended || limit.passed())
            return held;
        woken = sleep(inside, end, wanted, wake, limit);
    }
}

/// One sleep, which may end without a reason. True when `wake` was readable.
bool NullModemCable::sleep(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake,
                           clock::Deadline limit) noexcept {
    thread_local Signal called;
    called.clear();
    Waiter waiter{end, wanted, nextMoment(), called};
    if (waiter.wakesAt != never) {
        const uint64_t ticks = (waiter.wakesAt - now_ + nanosecondsPerTick - 1) / nanosecondsPerTick;
        const auto due = clock::Deadline::in(static_cast<uint32_t>(std::min<uint64_t>(ticks, INT32_MAX)));
        limit = clock::Deadline::earlier(limit, due);
    }
    if (called.descriptor() < 0) {
        // The host has no descriptor left, so nobody can call us: look again now and then.
        const auto soon = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
        limit = clock::Deadline::earlier(limit, clock::Deadline::at(soon));
    }

    waiters_.push_back(&waiter);
    inside.lock.unlock();
    Watch watches[2];
    watches[0].descriptor = called.descriptor();
    watches[1].descriptor = wake;
    watches[0].forRead = watches[1].forRead = true;
    waitAny(watches, limit.realMillisecondsLeft());
    inside.lock.lock();
    std::erase(waiters_, &waiter);
    return watches[1].readable || watches[1].hungUp;
}

} // namespace brisolt
