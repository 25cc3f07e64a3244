// Posting to threads, and what a pumping thread does with its queue.
#include "platform/message.h"

#include <memory>
#include <new>
#include <utility>

#include "platform/mutex.h"
#include "platform/posix/message_desk.h"

namespace brisolt::message {

namespace {

enum class Purpose {
    run,  ///< it is dispatched at once: others leave its shared window alone meanwhile
    give, ///< the program gets it and may never dispatch it
};

bool takeNext(ThreadQueue& queue, ComHostMessage& message, Purpose purpose) noexcept {
    if (queue.messages.empty() && desk().sharedWaiting == 0 && queue.claimed == 0)
        return false;
    MutexLock lock(desk().mutex);
    releaseClaim(queue);
    Window* window = sharedWindowFor(queue.thread);
    bool ownWaits = !queue.messages.empty();
    if (window && (!ownWaits || window->messages.firstOrder() < queue.messages.firstOrder())) {
        message = window->messages.take();
        --desk().sharedWaiting;
        if (purpose == Purpose::run) {
            window->runner = queue.thread;
            queue.claimed = window->id;
        }
        showLevels();
        return true;
    }
    if (!ownWaits)
        return false;
    message = queue.messages.take();
    showLevel(queue);
    return true;
}

bool takeQuit(ThreadQueue& queue) noexcept {
    if (!queue.quit)
        return false;
    MutexLock lock(desk().mutex);
    queue.quit = false;
    showLevel(queue);
    return true;
}

/// Calls change(queue) on a live thread's queue; when that has added something, the thread hears of it.
template <typename Change> bool post(uint32_t thread, Change change) noexcept try {
    MutexLock lock(desk().mutex);
    ThreadQueue* queue = queueOf(thread);
    if (!queue || !change(*queue))
        return false;
    showLevel(*queue);
    if (queue->wake)
        queue->wake->wake();
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

} // namespace

bool quitPending() noexcept {
    const ThreadQueue* queue = ownQueue();
    return queue && queue->quit;
}

bool waiting() noexcept {
    const ThreadQueue* queue = ownQueue();
    if (!queue)
        return false;
    if (!queue->messages.empty())
        return true;
    if (desk().sharedWaiting == 0)
        return false;
    MutexLock lock(desk().mutex);
    return sharedWindowFor(queue->thread) != nullptr;
}

bool take(ComHostMessage& message) noexcept {
    ThreadQueue* queue = ownQueue();
    return queue && takeNext(*queue, message, Purpose::run);
}

void letGo() noexcept {
    ThreadQueue* queue = ownQueue();
    if (queue == nullptr || queue->claimed == 0)
        return;
    MutexLock lock(desk().mutex);
    releaseClaim(*queue);
}

int32_t next(ComHostMessage& message) noexcept {
    ThreadQueue* queue = ownQueue();
    if (queue == nullptr)
        return 0;
    if (takeNext(*queue, message, Purpose::give))
        return 1;
    return takeQuit(*queue) ? -1 : 0;
}

int32_t descriptor() noexcept {
    ThreadQueue* queue = ownQueue();
    if (!queue)
        return -1;
    MutexLock lock(desk().mutex);
    if (!queue->descriptor) {
        std::unique_ptr<Signal> made(new (std::nothrow) Signal);
        if (!made || made->descriptor() < 0)
            return -1;
        queue->descriptor = std::move(made);
        ++desk().descriptors;
        showLevel(*queue);
    }
    return queue->descriptor->descriptor();
}

std::shared_ptr<Place> makePlace() noexcept try {
    auto place = std::make_shared<Place>();
    ThreadQueues apart;
    apart[0];
    place->queue = apart.extract(0);
    return place;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void giveThisThread(Place& place) noexcept {
    makeOwnQueue(&place);
}

bool postToThread(uint32_t thread, uint32_t message, uintptr_t first, intptr_t second) noexcept {
    if (message == COM_HOST_MESSAGE_QUIT)
        return postQuit(thread);
    return post(thread, [&](ThreadQueue& queue) WITH_LOCK(desk().mutex) {
        return queue.messages.push({0, message, first, second}, ++desk().lastOrder);
    });
}

bool threadExists(uint32_t thread) noexcept {
    return post(thread, [](ThreadQueue&) { return true; });
}

bool postQuit(uint32_t thread) noexcept {
    return post(thread, [](ThreadQueue& queue) {
        queue.quit = true;
        return true;
    });
}

} // namespace brisolt::message
