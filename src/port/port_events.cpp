#include "port/port_events.h"
#include "platform/mutex.h"

namespace brisolt {

PortEvents::Waiter::Waiter(PortEvents& events, Wake& wake) noexcept : events_(events), wake_(wake) {
    MutexLock guard(events_.mutex_);
    next_ = events_.first_;
    link_ = &events_.first_;
    if (next_ != nullptr)
        next_->link_ = &next_;
    events_.first_ = this;
    events_.waiting_.fetch_add(1);
}

PortEvents::Waiter::~Waiter() {
    MutexLock guard(events_.mutex_);
    *link_ = next_;
    if (next_ != nullptr)
        next_->link_ = link_;
    events_.waiting_.fetch_sub(1);
}

// The count moves before the waiters are looked for; a waiter enters the list before it compares the
// count. So either it sees the new count or it is found here.
void PortEvents::wakeAll() noexcept {
    count_.fetch_add(1);
    if (waiting_.load() == 0)
        return;
    MutexLock guard(mutex_);
    for (Waiter* waiter = first_; waiter != nullptr; waiter = waiter->next_)
        waiter->wake_.wake();
}

} // namespace brisolt
