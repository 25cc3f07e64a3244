#include "platform/process.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/mutex.h"
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

constexpr int32_t ownOutput = -1; ///< the program's standard output is that of this one

bool takeOutput(int32_t output) noexcept {
    if (output == ownOutput)
        return true;
    // A program that has closed its own may have been given that very number.
    return (output == STDOUT_FILENO ? fcntl(output, F_SETFD, 0) : dup2(output, STDOUT_FILENO)) >= 0;
}

[[noreturn]] void becomeProgram(char* const* arguments, int32_t output) noexcept {
    forgetSignalHandlers();
    // The caller may be one of our own threads, which block what a program needs.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (takeOutput(output))
        execvp(arguments[0], arguments);
    _exit(127);
}

// The process in between ends at once and is reaped here, so the program belongs to the system's first
// process, which reaps it. The library's descriptors are all closed on exec and do not reach it.
void launch(char* const* arguments, int32_t output) noexcept {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_t between = fork();
    if (between == 0) {
        if (fork() == 0)
            becomeProgram(arguments, output);
        _exit(0);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    while (between > 0 && waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

void startDetached(const char* program, const char* argument1, const char* argument2) noexcept {
    if (!program)
        return;
    char* arguments[] = {const_cast<char*>(program), const_cast<char*>(argument1),
                         argument1 ? const_cast<char*>(argument2) : nullptr, nullptr};
    launch(arguments, ownOutput);
}

// The end of its output tells the end of the script: its exit status might have been taken by the program,
// which may ignore its children or reap all of them.
bool answers(const char* script, const char* argument) noexcept {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    char shell[] = "sh";
    char option[] = "-c";
    char* arguments[] = {shell,  option, const_cast<char*>(script), shell, const_cast<char*>(argument),
                         nullptr};
    launch(arguments, ends[1]);
    close(ends[1]);
    bool answered = false;
    char bytes[64];
    for (ssize_t got = 1; got > 0 || (got < 0 && errno == EINTR);) {
        got = read(ends[0], bytes, sizeof bytes);
        answered = answered || got > 0;
    }
    close(ends[0]);
    return answered;
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
        MutexLock lock(mutex_);
        if (!running_ && !begin())
            return;
        uint64_t mine = ++asked_;
        changed_.notify_all();
        if (!overdue_)
            overdue_ = !doneInTime(mine);
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

    bool doneInTime(uint64_t asked) WITH_LOCK(mutex_) {
        const auto limit = std::chrono::steady_clock::now() + patience;
        while (done_ < asked)
            if (!mutex_.waitUntil(changed_, limit))
                return done_ >= asked;
        return true;
    }
    bool begin() WITH_LOCK(mutex_) {
        running_ =
            thread::start([](void* self) { static_cast<Flusher*>(self)->run(); }, this, "brisolt-flush");
        return running_;
    }
    void run() {
        MutexLock lock(mutex_);
        for (;;) {
            while (done_ >= asked_)
                mutex_.wait(changed_);
            uint64_t upTo = asked_;
            lock.unlock();
            fflush(nullptr);
            lock.lock();
            done_ = upTo;
            overdue_ = false;
            changed_.notify_all();
        }
    }

    Mutex mutex_;
    std::condition_variable changed_;
    const pid_t process_ = getpid();
    bool running_ GUARDED_BY(mutex_) = false;
    bool overdue_ GUARDED_BY(mutex_) = false; ///< a reader is in the thread's way
    uint64_t asked_ GUARDED_BY(mutex_) = 0;
    uint64_t done_ GUARDED_BY(mutex_) = 0;
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
