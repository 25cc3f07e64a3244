// Windows: who runs their functions, and when they are gone.
#include <limits>
#include <new>
#include <utility>

#include "platform/message.h"
#include "platform/mutex.h"
#include "platform/posix/message_desk.h"
#include "platform/thread.h"

namespace brisolt::message {

namespace {

// A shared window that is busy elsewhere cannot take the message now. Waiting for its turn could wait for
// ourselves in a roundabout way, so the message goes back to the head of its queue.
bool handBack(Window& window, const ComHostMessage& message) noexcept WITH_LOCK(desk().mutex) {
    try {
        auto before = window.messages.size();
        window.messages.putBack(message);
        desk().sharedWaiting += window.messages.size() - before;
        announce(window);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void enter(Window& window, ThreadQueue& queue) noexcept WITH_LOCK(desk().mutex) {
    if (queue.claimed == window.id)
        queue.claimed = 0;
    window.runner = queue.thread;
    ++window.depth;
    if (!window.owner)
        showLevels(); // its other messages are not the other threads' for now
}

void leave(Window& window, const ThreadQueue& queue) noexcept WITH_LOCK(desk().mutex) {
    if (--window.depth > 0)
        return;
    if (window.destroyed)
        desk().functionLeft.notify_all();
    else if (queue.claimed != window.id)
        release(window);
}

} // namespace

int32_t createWindow(ComHostWindowFunc function, void* context, bool shared) noexcept try {
    ThreadQueue* owner = shared ? nullptr : ownQueue();
    if (!function || (!shared && !owner))
        return -1;
    auto window = std::make_shared<Window>();
    window->function = function;
    window->context = context;
    window->owner = owner;
    MutexLock lock(desk().mutex);
    if (desk().lastWindow == std::numeric_limits<int32_t>::max())
        return -1;
    window->id = desk().lastWindow + 1;
    desk().windows.emplace(window->id, window);
    return ++desk().lastWindow;
} catch (const std::bad_alloc&) {
    return -1;
}

bool destroyWindow(int32_t window) noexcept {
    MutexLock lock(desk().mutex);
    auto target = findWindow(window);
    if (!target)
        return false;
    target->destroyed = true;
    desk().windows.erase(window);
    if (target->owner) {
        target->owner->messages.dropWindow(window);
        showLevel(*target->owner);
    } else {
        desk().sharedWaiting -= target->messages.size();
        showLevels();
    }
    if (target->runner != thread::currentId())
        while (target->depth != 0)
            desk().mutex.wait(desk().functionLeft);
    return true;
}

bool windowExists(int32_t window) noexcept {
    MutexLock lock(desk().mutex);
    auto found = findWindow(window);
    return found != nullptr && !found->destroyed;
}

bool postToWindow(int32_t window, uint32_t message, uintptr_t first, intptr_t second) noexcept try {
    MutexLock lock(desk().mutex);
    auto target = findWindow(window);
    if (!target)
        return false;
    MessageQueue& messages = target->owner ? target->owner->messages : target->messages;
    auto before = messages.size();
    if (!messages.push({window, message, first, second}, ++desk().lastOrder))
        return false;
    if (target->owner) {
        showLevel(*target->owner);
        target->owner->wake->wake();
    } else {
        desk().sharedWaiting += messages.size() - before;
        announce(*target);
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool dispatch(const ComHostMessage& message) noexcept {
    ThreadQueue* queue = ownQueue();
    if (!queue)
        return false;
    MutexLock lock(desk().mutex);
    auto window = findWindow(message.window);
    if (!window || (window->owner && window->owner != queue))
        return false;
    if (window->runner != 0 && window->runner != queue->thread)
        return handBack(*window, message);
    enter(*window, *queue);
    lock.unlock();
    window->function(window->context, message.window, message.message, message.first, message.second);
    lock.lock();
    leave(*window, *queue);
    return true;
}

} // namespace brisolt::message
