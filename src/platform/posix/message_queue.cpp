#include "platform/posix/message_queue.h"

#include <algorithm>
#include <functional>
#include <new>

namespace brisolt {

namespace {

constexpr uint32_t firstNotification = 0x800A;
constexpr uint32_t lastNotification = 0x800C;
constexpr uint64_t beforeAllOthers = 0;

bool isNotification(const ComHostMessage& message) noexcept {
    return message.message >= firstNotification && message.message <= lastNotification;
}

} // namespace

std::size_t MessageQueue::Hash::operator()(const ComHostMessage& message) const noexcept {
    std::size_t hash = std::hash<uintptr_t>()(message.first);
    hash = hash * 31 + std::hash<intptr_t>()(message.second);
    hash = hash * 31 + std::hash<int32_t>()(message.window);
    return hash * 31 + message.message;
}

bool MessageQueue::Equal::operator()(const ComHostMessage& a, const ComHostMessage& b) const noexcept {
    return a.window == b.window && a.message == b.message && a.first == b.first && a.second == b.second;
}

// False: an equal notification waits already.
bool MessageQueue::noteNotification(const ComHostMessage& message) {
    return !isNotification(message) || notifications_.insert(message).second;
}

void MessageQueue::forgetNotification(const ComHostMessage& message) noexcept {
    if (isNotification(message))
        notifications_.erase(message);
}

/// Events that wait are told once, all in one message.
bool MessageQueue::mergeEvents(const ComHostMessage& message) noexcept {
    if (message.message != COM_HOST_MESSAGE_EVENT || size_.load(std::memory_order_relaxed) == 0)
        return false;
    auto waiting = std::find_if(entries_->begin(), entries_->end(), [&](const Entry& entry) {
        return entry.message.message == message.message && entry.message.window == message.window &&
               entry.message.second == message.second;
    });
    if (waiting == entries_->end())
        return false;
    waiting->message.first |= message.first;
    return true;
}

std::deque<MessageQueue::Entry>& MessageQueue::entries() {
    if (entries_ == nullptr)
        entries_ = std::make_unique<std::deque<Entry>>();
    return *entries_;
}

bool MessageQueue::push(const ComHostMessage& message, uint64_t order) {
    if (mergeEvents(message))
        return true;
    std::deque<Entry>& all = entries();
    if (all.size() >= COM_HOST_QUEUE_LIMIT)
        return isNotification(message) && notifications_.contains(message);
    if (!noteNotification(message))
        return true;
    try {
        all.push_back({message, order});
    } catch (const std::bad_alloc&) {
        forgetNotification(message);
        throw;
    }
    publishSize();
    return true;
}

void MessageQueue::putBack(const ComHostMessage& message) {
    std::deque<Entry>& all = entries();
    if (!noteNotification(message))
        return;
    try {
        all.push_front({message, beforeAllOthers});
    } catch (const std::bad_alloc&) {
        forgetNotification(message);
        throw;
    }
    publishSize();
}

ComHostMessage MessageQueue::take() noexcept {
    ComHostMessage message = entries_->front().message;
    entries_->pop_front();
    forgetNotification(message);
    publishSize();
    return message;
}

void MessageQueue::dropWindow(int32_t window) noexcept {
    if (entries_ == nullptr)
        return;
    std::erase_if(*entries_, [&](const Entry& entry) {
        if (entry.message.window != window)
            return false;
        forgetNotification(entry.message);
        return true;
    });
    publishSize();
}

} // namespace brisolt
