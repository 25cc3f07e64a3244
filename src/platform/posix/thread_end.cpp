#include "platform/posix/thread_end.h"
#include "platform/mutex.h"

#include <memory>
#include <new>

#include <pthread.h>

namespace brisolt {

namespace {

struct End {
    void (*function)(void*);
    void* argument;
    End* earlier;
};

Mutex keyMutex;
bool keyMade GUARDED_BY(keyMutex) = false;
pthread_key_t madeKey GUARDED_BY(keyMutex);

// The host has taken the list off the thread before: what is registered from here on makes a new one, for
// which the host calls again.
void runEnds(void* latest) {
    while (latest != nullptr) {
        const std::unique_ptr<End> end(static_cast<End*>(latest));
        latest = end->earlier;
        end->function(end->argument);
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

bool atThreadEnd(void (*function)(void*), void* argument) noexcept {
    pthread_key_t key{};
    if (!haveKey(key))
        return false;
    std::unique_ptr<End> end(new (std::nothrow)
                                 End{function, argument, static_cast<End*>(pthread_getspecific(key))});
    if (!end || pthread_setspecific(key, end.get()) != 0)
        return false;
    (void)end.release();
    return true;
}

} // namespace brisolt
