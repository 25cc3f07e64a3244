#include "platform/posix/message_desk.h"

#include <new>
#include <utility>

#include "platform/forked.h"
#include "platform/lasting.h"
#include "platform/mutex.h"
#include "platform/posix/thread_life.h"
#include "platform/thread.h"

namespace brisolt {

namespace {

thread_local ThreadQueue* own = nullptr;

ThreadQueue* find(uint32_t thread) noexcept WITH_LOCK(desk().mutex) {
    auto found = desk().queues.find(thread);
    return found == desk().queues.end() ? nullptr : &found->second;
}

ThreadQueue& add(uint32_t thread, uint64_t birth, message::Place* place) WITH_LOCK(desk().mutex) {
    if (place && !place->queue.empty()) {
        place->queue.key() = thread;
        desk().queues.insert(std::move(place->queue));
    }
    ThreadQueue& queue = desk().queues[thread];
    queue.thread = thread;
    queue.birth = birth;
    return queue;
}

// The windows of a thread end with it. Their functions are not running: they would run on this thread.
void endOwnQueue() noexcept {
    if (own == nullptr) // a child's, whose parent had it
        return;
    MutexLock lock(desk().mutex);
    releaseClaim(*own);
    std::erase_if(desk().windows, [](const auto& entry) { return entry.second->owner == own; });
    if (own->descriptor)
        --desk().descriptors;
    desk().queues.erase(own->thread);
    own = nullptr;
}

thread_local thread::End ending{endOwnQueue};

// Queues of threads that ended without ever having looked for messages.
void sweepQueues() noexcept WITH_LOCK(desk().mutex) {
    std::erase_if(desk().queues,
                  [](const auto& entry) { return !entry.second.wake && !threadLives(entry.first); });
}

bool mayHandle(const Window& window, uint32_t thread) noexcept {
    return window.runner == 0 || window.runner == thread;
}

} // namespace

Desk& desk() {
    static Lasting<Desk> only;
    static const bool watched = [] {
        forked::beginAnewInChild([] {
            own = nullptr;
            only.beginAnew();
        });
        return true;
    }();
    (void)watched;
    return *only;
}

ThreadQueue* ownQueue() noexcept {
    return own ? own : makeOwnQueue(nullptr);
}

ThreadQueue* makeOwnQueue(message::Place* place) noexcept try {
    // Before the queue, so that it is there as long as the queue is.
    std::shared_ptr<Wake> wake = Wake::ofThisThread();
    if (wake->blind())
        return nullptr;
    uint32_t thread = thread::currentId();
    MutexLock lock(desk().mutex);
    ThreadQueue* queue = find(thread);
    if (queue && !sameBirth(queue->birth, threadBirth(thread))) {
        desk().queues.erase(thread); // of an earlier thread with our identifier
        queue = nullptr;
    }
    if (!queue)
        queue = &add(thread, 0, place);
    if (!thread::atEnd(ending))
        return nullptr; // it collects what others post until the thread comes again
    own = queue;
    own->wake = std::move(wake);
    return own;
} catch (const std::bad_alloc&) {
    return nullptr;
}

ThreadQueue* queueOf(uint32_t thread) {
    if (ThreadQueue* queue = find(thread); queue && queue->wake)
        return queue;
    desk().mutex.unlock();
    uint64_t birth = threadBirth(thread);
    desk().mutex.lock();
    ThreadQueue* queue = find(thread);
    if (queue && (queue->wake || sameBirth(queue->birth, birth)))
        return queue;
    desk().queues.erase(thread);
    if (birth == 0)
        return nullptr;
    sweepQueues();
    return &add(thread, birth, nullptr);
}

std::shared_ptr<Window> findWindow(int32_t id) noexcept {
    auto found = desk().windows.find(id);
    return found == desk().windows.end() ? nullptr : found->second;
}

Window* sharedWindowFor(uint32_t thread) noexcept {
    if (desk().sharedWaiting == 0)
        return nullptr;
    Window* oldest = nullptr;
    for (const auto& [id, window] : desk().windows) {
        if (window->messages.empty() || !mayHandle(*window, thread))
            continue;
        if (!oldest || window->messages.firstOrder() < oldest->messages.firstOrder())
            oldest = window.get();
    }
    return oldest;
}

void showLevel(ThreadQueue& queue) noexcept {
    if (!queue.descriptor)
        return;
    bool level = !queue.messages.empty() || queue.quit || sharedWindowFor(queue.thread);
    if (level == std::exchange(queue.descriptorSet, level))
        return;
    if (level)
        queue.descriptor->set();
    else
        queue.descriptor->clear();
}

void showLevels() noexcept {
    if (desk().descriptors == 0)
        return;
    for (auto& [thread, queue] : desk().queues)
        showLevel(queue);
}

void announce(const Window& window) noexcept {
    for (auto& [thread, queue] : desk().queues) {
        if (!queue.wake || !mayHandle(window, thread))
            continue;
        showLevel(queue);
        queue.wake->wake();
    }
}

void release(Window& window) noexcept {
    window.runner = 0;
    if (!window.messages.empty())
        announce(window);
}

void releaseClaim(ThreadQueue& queue) noexcept {
    if (queue.claimed == 0)
        return;
    auto window = findWindow(std::exchange(queue.claimed, 0));
    if (window && window->depth == 0)
        release(*window);
}

} // namespace brisolt
