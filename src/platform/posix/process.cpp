#include "platform/process.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/thread.h"

namespace brisolt::process {

namespace {

// Runs in a copy of the program that has lost all its other threads: the program's handlers must not run
// there, and nothing but system calls may. What the program ignores stays ignored, as for any child.
void forgetSignalHandlers() noexcept {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = SIG_DFL;
        action.sa_flags = 0;
        sigaction(number, &action, nullptr);
    }
}

[[noreturn]] void becomeProgram(const char* program, char* const* arguments) noexcept {
    forgetSignalHandlers();
    // The caller may be one of our own threads, which block what a program needs.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execvp(program, arguments);
    _exit(127);
}

} // namespace

// The process in between ends at once and is reaped here, so the program belongs to the system's first
// process, which reaps it. The library's descriptors are all closed on exec and do not reach it.
void startDetached(const char* program, const char* argument1, const char* argument2) noexcept {
    if (!program)
        return;
    char* arguments[] = {const_cast<char*>(program), const_cast<char*>(argument1),
                         argument1 ? const_cast<char*>(argument2) : nullptr, nullptr};
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_t between = fork();
    if (between == 0) {
        if (fork() == 0)
            becomeProgram(program, arguments);
        _exit(0);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    while (between > 0 && waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
}

int32_t runCommand(const char* commandLine) noexcept {
    return std::system(commandLine);
}

namespace {

/// Flushes for others, on a thread of its own: the runtime library locks every stream to flush all of them,
/// and one that somebody reads from, say a pipe that is silent, is locked for as long as that takes.
class Flusher {
public:
    /// Returns when all streams are flushed, or after a while when a reader is in the way; the next callers do
    /// not wait for that one again.
    void flush() {
        std::unique_lock lock(mutex_);
        if (!running_ && !begin())
            return;
        uint64_t mine = ++asked_;
        changed_.notify_all();
        if (!overdue_)
            overdue_ = !changed_.wait_for(lock, patience, [&] { return done_ >= mine; });
    }

    /// The process's own: a child has none of its parent's threads, and may have inherited a locked mutex.
    static Flusher& instance() {
        static std::atomic<Flusher*> current{nullptr}; // never destroyed: the thread lives to the end
        Flusher* flusher = current.load();
        if (flusher != nullptr && flusher->process_ == getpid())
            return *flusher;
        auto made = std::make_unique<Flusher>();
        return current.compare_exchange_strong(flusher, made.get()) ? *made.release() : *flusher;
    }

private:
    static constexpr std::chrono::milliseconds patience{50};

    bool begin() {
        running_ =
            thread::start([](void* self) { static_cast<Flusher*>(self)->run(); }, this, "brisolt-flush");
        return running_;
    }
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return done_ < asked_; });
            uint64_t upTo = asked_;
            lock.unlock();
            fflush(nullptr);
            lock.lock();
            done_ = upTo;
            overdue_ = false;
            changed_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    const pid_t process_ = getpid();
    bool running_ = false;
    bool overdue_ = false; ///< a reader is in the thread's way
    uint64_t asked_ = 0;
    uint64_t done_ = 0;
};

} // namespace

void flushStreams() noexcept {
    try {
        Flusher::instance().flush();
    } catch (...) {
        return; // nothing is lost: the streams are flushed another time
    }
}

} // namespace brisolt::process
