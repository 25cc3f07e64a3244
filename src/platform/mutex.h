// A mutex whose contracts the compiler checks (clang's -Wthread-safety, in `make check`): a field says which
// lock guards it, a function which lock its caller holds. Another compiler sees a plain mutex.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

#if defined(__clang__)
#define BRISOLT_LOCK_CONTRACT(contract) __attribute__((contract))
#else
#define BRISOLT_LOCK_CONTRACT(contract)
#endif

/// Of a field: read and written with that lock only.
#define GUARDED_BY(lock) BRISOLT_LOCK_CONTRACT(guarded_by(lock))
/// Of a function: its caller holds that lock.
#define WITH_LOCK(...) BRISOLT_LOCK_CONTRACT(requires_capability(__VA_ARGS__))
/// Of a function that comes back with the lock, or without it.
#define TAKES_LOCK(...) BRISOLT_LOCK_CONTRACT(acquire_capability(__VA_ARGS__))
#define GIVES_LOCK(...) BRISOLT_LOCK_CONTRACT(release_capability(__VA_ARGS__))
#define TRIES_LOCK(...) BRISOLT_LOCK_CONTRACT(try_acquire_capability(__VA_ARGS__))
/// Of a class that is a lock, or that holds one for the length of a scope.
#define IS_A_LOCK BRISOLT_LOCK_CONTRACT(capability("lock"))
#define HOLDS_A_LOCK BRISOLT_LOCK_CONTRACT(scoped_lockable)
/// Of a function that does what the check cannot follow; a comment says why it is right.
#define LOCKS_UNCHECKED BRISOLT_LOCK_CONTRACT(no_thread_safety_analysis)

namespace brisolt {

class IS_A_LOCK Mutex {
public:
    void lock() TAKES_LOCK() { mutex_.lock(); }
    void unlock() GIVES_LOCK() { mutex_.unlock(); }
    /// Sleeps on the condition, without the lock meanwhile.
    void wait(std::condition_variable& condition) WITH_LOCK(this) {
        std::unique_lock own(mutex_, std::adopt_lock);
        condition.wait(own);
        own.release();
    }
    /// False: the moment has come.
    bool waitUntil(std::condition_variable& condition, std::chrono::steady_clock::time_point moment)
        WITH_LOCK(this) {
        std::unique_lock own(mutex_, std::adopt_lock);
        const bool called = condition.wait_until(own, moment) == std::cv_status::no_timeout;
        own.release();
        return called;
    }

    /// In a child (platform/forked.h), where nobody is left who could have it.
    void beginAnew() noexcept { new (&mutex_) std::mutex; }

private:
    std::mutex mutex_;
};

class HOLDS_A_LOCK MutexLock {
public:
    explicit MutexLock(Mutex& mutex) TAKES_LOCK(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() GIVES_LOCK() {
        if (held_)
            mutex_.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    /// For what must not be done with the lock, in the middle of the scope.
    void unlock() GIVES_LOCK() {
        held_ = false;
        mutex_.unlock();
    }
    void lock() TAKES_LOCK() {
        mutex_.lock();
        held_ = true;
    }

private:
    Mutex& mutex_;
    bool held_ = true;
};

} // namespace brisolt
