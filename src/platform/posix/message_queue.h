// Messages in the order they were posted, with a bound, and notifications kept once.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_set>

#include "brisolt_host.h"

namespace brisolt {

/// Somebody else's lock guards it; only size() and empty() may be asked without.
class MessageQueue {
public:
    /// `order` is the message's place among those of all queues. False: the queue is full. A notification
    /// that waits already is not added again, and that is a success. Throws when there is no memory.
    bool push(const ComHostMessage& message, uint64_t order);
    /// Makes a message that has been taken the next one again, even in a full queue.
    void putBack(const ComHostMessage& message);

    std::size_t size() const noexcept { return size_.load(std::memory_order_acquire); }
    bool empty() const noexcept { return size() == 0; }
    uint64_t firstOrder() const noexcept { return entries_->front().order; }
    ComHostMessage take() noexcept;
    void dropWindow(int32_t window) noexcept;

private:
    struct Entry {
        ComHostMessage message;
        uint64_t order;
    };
    struct Hash {
        std::size_t operator()(const ComHostMessage& message) const noexcept;
    };
    struct Equal {
        bool operator()(const ComHostMessage& a, const ComHostMessage& b) const noexcept;
    };

    bool mergeEvents(const ComHostMessage& message) noexcept;
    bool noteNotification(const ComHostMessage& message);
    void forgetNotification(const ComHostMessage& message) noexcept;
    void publishSize() noexcept { size_.store(entries_->size(), std::memory_order_release); }

    /// Made with the first message: most threads of the library never get one.
    std::deque<Entry>& entries();

    std::unique_ptr<std::deque<Entry>> entries_;
    std::unordered_set<ComHostMessage, Hash, Equal> notifications_; // those among the entries
    std::atomic<std::size_t> size_{0};
};

} // namespace brisolt
