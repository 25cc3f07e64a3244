#include "port/writer_queue.h"

namespace brisolt {

void WriterQueue::queue(Place& place) noexcept {
    Place** end = &first_;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = &place;
}

void WriterQueue::leaveQueue(Place& place) noexcept {
    for (Place** link = &first_; *link != nullptr; link = &(*link)->next)
        if (*link == &place) {
            *link = place.next;
            return;
        }
}

void WriterQueue::release() noexcept {
    Place* next = first_;
    if (next == nullptr) {
        taken_.store(0, std::memory_order_release);
        return;
    }
    first_ = next->next;
    next->granted = true;
    next->wake->wake();
}

} // namespace brisolt
