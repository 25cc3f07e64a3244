// Where posters and pumping threads meet: the queues of all threads, the windows, and one lock for both.
// Nothing is called out to, and nobody waits, while that lock is held.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>

#include "platform/message.h"
#include "platform/mutex.h"
#include "platform/posix/message_queue.h"
#include "platform/signal.h"
#include "platform/wake.h"

namespace brisolt {

/// The queue of one thread. Until the thread itself uses it for the first time it only collects what others
/// post; it has no `wake` then, and nobody would notice the thread's end but for `birth`.
struct ThreadQueue {
    uint32_t thread = 0;
    uint64_t birth = 0;
    MessageQueue messages;
    std::atomic<bool> quit{false};
    std::shared_ptr<Wake> wake;
    std::unique_ptr<Signal> descriptor; ///< once asked for
    bool descriptorSet = false;
    int32_t claimed = 0; ///< the shared window whose message the thread has taken in order to run it
};

using ThreadQueues = std::unordered_map<uint32_t, ThreadQueue>;

struct Window {
    int32_t id = 0;
    ComHostWindowFunc function = nullptr;
    void* context = nullptr;
    ThreadQueue* owner = nullptr; ///< null: shared
    MessageQueue messages;        ///< a shared window's
    uint32_t runner = 0;          ///< the thread that runs the function or is about to
    int32_t depth = 0;            ///< how often the function is on that thread's stack
    bool destroyed = false;
};

struct Desk {
    Mutex mutex;
    std::condition_variable functionLeft; ///< of a destroyed window
    ThreadQueues queues GUARDED_BY(mutex);
    std::map<int32_t, std::shared_ptr<Window>> windows GUARDED_BY(mutex);
    std::atomic<std::size_t> sharedWaiting{0};     ///< messages in all shared windows
    std::size_t descriptors GUARDED_BY(mutex) = 0; ///< queues that have one
    uint64_t lastOrder GUARDED_BY(mutex) = 0;
    int32_t lastWindow GUARDED_BY(mutex) = 0;
};

Desk& desk();

struct message::Place {
    ThreadQueues::node_type queue; ///< none: it stands in the desk
};

/// The calling thread's queue, made on first use; null when there is no memory. Takes the lock.
ThreadQueue* ownQueue() noexcept;
/// For a thread that has none yet; `place`, unless it is null, was made for it.
ThreadQueue* makeOwnQueue(message::Place* place) noexcept;

// ---- with the lock held
/// The queue of any live thread of the process, else null. Lets go of the lock while it asks the host.
ThreadQueue* queueOf(uint32_t thread) WITH_LOCK(desk().mutex);
std::shared_ptr<Window> findWindow(int32_t id) noexcept WITH_LOCK(desk().mutex);
/// The shared window whose first message that thread may handle now, the oldest message first; or null.
Window* sharedWindowFor(uint32_t thread) noexcept WITH_LOCK(desk().mutex);
/// Brings a queue's descriptor up to date, respectively those of all queues.
void showLevel(ThreadQueue& queue) noexcept WITH_LOCK(desk().mutex);
void showLevels() noexcept WITH_LOCK(desk().mutex);
/// A shared window's messages wait: wakes whoever may handle them.
void announce(const Window& window) noexcept WITH_LOCK(desk().mutex);
/// Nobody runs the window's function any more: its next message is anybody's.
void release(Window& window) noexcept WITH_LOCK(desk().mutex);
/// Gives up the shared window of a message that the thread has taken and not dispatched.
void releaseClaim(ThreadQueue& queue) noexcept WITH_LOCK(desk().mutex);

} // namespace brisolt
