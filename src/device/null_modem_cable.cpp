#include "device/null_modem_cable.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <system_error>

#include "platform/mutex.h"
#include "platform/parking.h"

namespace brisolt {

namespace {

constexpr uint64_t nanosecondsPerTick = 1'000'000;
constexpr uint64_t never = UINT64_MAX;

} // namespace

NullModemCable::NullModemCable(const CableKind& kind, std::string_view name)
    : kind_(kind), name_(name), tick_(clock::ticks()) {}

// ---- The ends ----------------------------------------------------------------------------------------

int32_t NullModemCable::join(const NullModemStart& start, NullModemEnd*& joined) noexcept {
    Inside inside(*this);
    auto& place = ends_[0] && !kind_.isLoop ? ends_[1] : ends_[0];
    if (place)
        return -static_cast<int32_t>(std::errc::device_or_resource_busy);
    std::unique_ptr<NullModemEnd> end(new (std::nothrow) NullModemEnd(*this, start));
    const int32_t made = end ? end->setUp() : -static_cast<int32_t>(std::errc::not_enough_memory);
    if (made < 0)
        return made;
    place = std::move(end);
    joined = place.get();
    NullModemEnd* const peer = kind_.isLoop ? joined : ends_[ends_[0] == place ? 1 : 0].get();
    if (peer != nullptr) {
        joined->ring = peer->ring;
        joined->meet(*peer);
        peer->meet(*joined);
    }
    joined->shownLines = joined->modemLines(); // it counts from here on
    return 1;
}

void NullModemCable::leave(NullModemEnd& end) noexcept {
    watch(end, nullptr, nullptr);
    Inside inside(*this);
    if (end.peer != nullptr)
        end.peer->part();
    ends_[ends_[0].get() == &end ? 0 : 1].reset();
}

bool NullModemCable::unused() noexcept {
    const Inside inside(*this);
    return !ends_[0] && !ends_[1];
}

void NullModemCable::ring(bool on) noexcept {
    Inside inside(*this);
    for (const auto& end : ends_)
        if (end)
            end->ring = on;
}

// ---- Time and the line -------------------------------------------------------------------------------

bool NullModemCable::isPaced() const noexcept {
    return std::any_of(std::begin(ends_), std::end(ends_), [](const auto& end) { return end && end->paced; });
}

/// Lets everything happen that is over by now.
void NullModemCable::advance() noexcept {
    const uint32_t tick = clock::ticks();
    const uint64_t present = now_ + uint64_t{tick - tick_} * nanosecondsPerTick;
    const bool takeTime = isPaced();
    tick_ = tick;
    for (;;) {
        startCharacters(takeTime);
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

void NullModemCable::startCharacters(bool takeTime) noexcept {
    for (const auto& end : ends_) {
        if (!end || end->flight)
            continue;
        if (!takeTime)
            end->sendRun();
        end->flight = end->nextCharacter();
        if (end->flight)
            end->flight->due = now_ + (takeTime ? end->characterNanoseconds() : 0);
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

/// A cancel ends what waits at its moment. Writes and flushes end as long as it lasts; a plain wait has its
/// own descriptor to be ended by.
bool ended(const NullModemEnd& end, uint32_t wanted, uint32_t earlierCancels) noexcept {
    constexpr uint32_t plain = nullModemReadable | nullModemWritable;
    return end.cancels != earlierCancels || (end.cancelled && (wanted & ~plain) != 0);
}

} // namespace

/// Lets changes take effect and calls the waiting threads that they concern: those whose condition holds,
/// and those that would sleep past the next character.
void NullModemCable::settle() noexcept {
    advance();
    for (const auto& end : ends_)
        if (end) {
            end->showReadable();
            end->countLines();
        }
    const uint64_t nextArrival = nextMoment();
    for (Waiter* waiter = waiters_; waiter != nullptr; waiter = waiter->next) {
        const uint32_t held = waiter->end.holding(waiter->wanted);
        if (waiter->bell != nullptr && (held & nullModemReadable) != 0)
            continue; // it watches the handle, which tells it
        if (held != 0 || ended(waiter->end, waiter->wanted, waiter->cancels) || nextArrival < waiter->wakesAt)
            call(*waiter);
    }
}

void NullModemCable::tell(MutexLock& lock) noexcept {
    for (const auto& place : ends_) {
        NullModemEnd* const end = place.get();
        if (end == nullptr || !end->moved)
            continue;
        end->moved = false;
        if (end->tellChange == nullptr)
            continue;
        const auto changed = end->tellChange;
        void* const argument = end->tellArgument;
        ++end->telling; // it stays until we are back
        lock.unlock();
        changed(argument);
        lock.lock();
        if (--end->telling == 0)
            told_.notify_all();
    }
}

void NullModemCable::watch(NullModemEnd& end, void (*changed)(void*), void* argument) noexcept {
    Inside inside(*this);
    end.tellChange = changed;
    end.tellArgument = argument;
    while (changed == nullptr && end.telling != 0)
        mutex_.wait(told_);
}

void NullModemCable::call(Waiter& waiter) noexcept {
    if (waiter.called.exchange(1) != 0)
        return;
    if (waiter.bell != nullptr)
        waiter.bell->set();
    else
        parking::unparkAll(waiter.called);
}

uint32_t NullModemCable::wait(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake,
                              clock::Deadline limit, bool* interrupted) noexcept {
    const uint32_t cancels = end.cancels;
    for (Slept slept = Slept::on;;) {
        settle();
        const uint32_t held = end.holding(wanted);
        if (interrupted != nullptr)
            *interrupted = slept == Slept::interrupted;
        if (held != 0 || slept != Slept::on || ended(end, wanted, cancels) || limit.passed())
            return held;
        slept = sleep(inside, {.end = end, .wanted = wanted, .cancels = cancels}, wake, limit);
    }
}

/// One sleep, which may end without a reason.
NullModemCable::Slept NullModemCable::sleep(Inside& inside, Waiter&& waiter, int32_t wake,
                                            clock::Deadline limit) noexcept {
    waiter.wakesAt = nextMoment();
    if (waiter.wakesAt != never) {
        const uint64_t ticks = (waiter.wakesAt - now_ + nanosecondsPerTick - 1) / nanosecondsPerTick;
        const auto due = clock::Deadline::in(static_cast<uint32_t>(std::min<uint64_t>(ticks, INT32_MAX)));
        limit = clock::Deadline::earlier(limit, due);
    }
    std::optional<Signal> spare;
    if (wake >= 0)
        waiter.bell = waiter.end.bellTaken ? &spare.emplace() : &waiter.end.bell;
    if (waiter.bell != nullptr && waiter.bell->descriptor() < 0) {
        // The host has no descriptor left, so nobody can call us: look again now and then.
        const auto soon = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
        limit = clock::Deadline::earlier(limit, clock::Deadline::at(soon));
    }

    enlist(waiter);
    tell(inside.lock);
    inside.lock.unlock();
    const Slept slept = wake < 0 ? park(waiter, limit) : doze(waiter, wake, limit);
    inside.lock.lock();
    dismiss(waiter);
    return slept;
}

NullModemCable::Slept NullModemCable::park(Waiter& waiter, clock::Deadline limit) noexcept {
    parking::park(waiter.called, 0, limit.realMillisecondsLeft());
    return Slept::on;
}

NullModemCable::Slept NullModemCable::doze(Waiter& waiter, int32_t wake, clock::Deadline limit) noexcept {
    const bool reads = (waiter.wanted & nullModemReadable) != 0;
    Watch watches[3];
    watches[0].descriptor = waiter.bell->descriptor();
    watches[1].descriptor = reads ? waiter.end.readable.descriptor() : -1;
    watches[2].descriptor = wake;
    for (Watch& watch : watches)
        watch.forRead = true;
    const int32_t happened = waitAny(watches, limit.realMillisecondsLeft());
    if (happened < 0)
        return Slept::interrupted;
    if (happened > 0)
        return watches[2].readable || watches[2].hungUp ? Slept::woken : Slept::on;
    // Where the host fails to wait, nobody knows whether `wake` is readable: the caller shall look.
    return limit.passed() ? Slept::on : Slept::blind;
}

void NullModemCable::enlist(Waiter& waiter) noexcept {
    waiter.next = waiters_;
    waiters_ = &waiter;
    waiter.end.bellTaken = waiter.end.bellTaken || waiter.bell == &waiter.end.bell;
}

void NullModemCable::dismiss(Waiter& waiter) noexcept {
    Waiter** place = &waiters_;
    while (*place != &waiter)
        place = &(*place)->next;
    *place = waiter.next;
    if (waiter.bell != &waiter.end.bell)
        return;
    waiter.end.bellTaken = false;
    if (waiter.called != 0)
        waiter.bell->clear();
}

} // namespace brisolt
