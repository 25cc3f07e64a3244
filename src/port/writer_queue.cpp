#include "port/writer_queue.h"

namespace brisolt {

void WriterQueue::ask(Place& place) noexcept {
    if (!taken()) {
        taken_.store(1, std::memory_order_release);
        place.granted = true;
        return;
    }
    Place** end = &first_;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = &place;
}

bool WriterQueue::leave(Place& place) noexcept {
    if (!place.granted) {
        for (Place** link = &first_; *link != nullptr; link = &(*link)->next)
            if (*link == &place) {
                *link = place.next;
                break;
            }
        return false;
    }
    Place* next = first_;
    if (next == nullptr) {
        taken_.store(0, std::memory_order_release);
        return false;
    }
    first_ = next->next;
    next->granted = true;
    return true;
}

} // namespace brisolt
