#include <pthread.h>

#include "platform/mutex.h"
#include "platform/thread.h"

namespace brisolt::thread {

namespace {

Mutex keyMutex;
bool keyMade GUARDED_BY(keyMutex) = false;
pthread_key_t madeKey GUARDED_BY(keyMutex);

// The host has taken the list off the thread before: what is registered from here on makes a new one, for
// which the host calls again.
void runEnds(void* latest) {
    while (latest != nullptr) {
        End& end = *static_cast<End*>(latest);
        latest = end.earlier;
        end.registered = false;
        end.function();
    }
}

/// A program may have used up all keys; it may give some back.
bool haveKey(pthread_key_t& key) noexcept {
    MutexLock guard(keyMutex);
    keyMade = keyMade || pthread_key_create(&madeKey, runEnds) == 0;
    key = madeKey;
    return keyMade;
}

} // namespace

bool atEnd(End& end) noexcept {
    pthread_key_t key{};
    if (end.registered) // also of a child's only thread, by its parent
        return true;
    if (!haveKey(key))
        return false;
    end.earlier = static_cast<End*>(pthread_getspecific(key));
    end.registered = pthread_setspecific(key, &end) == 0;
    return end.registered;
}

} // namespace brisolt::thread
