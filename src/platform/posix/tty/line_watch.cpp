#include "platform/posix/tty/line_watch.h"

#include <cerrno>
#include <csignal>
#include <new>

#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/mutex.h"
#include "platform/parking.h"
#include "platform/thread.h"

namespace brisolt::tty {

namespace {

constexpr int32_t retry = 5; // real milliseconds

/// A real-time signal that the program has left alone, with a handler that does nothing. 0: there is none.
int32_t chooseSignal() noexcept {
    for (int32_t candidate = SIGRTMAX; candidate >= SIGRTMIN; --candidate) {
        struct sigaction now {};
        if (sigaction(candidate, nullptr, &now) != 0 || now.sa_handler != SIG_DFL)
            continue;
        struct sigaction quiet {};
        quiet.sa_handler = [](int) {}; // without SA_RESTART: the call ends
        return sigaction(candidate, &quiet, nullptr) == 0 ? candidate : 0;
    }
    return 0;
}

int32_t endingSignal() noexcept {
    static constinit Mutex mutex;
    static constinit int32_t chosen = 0;
    MutexLock guard(mutex);
    if (chosen == 0)
        chosen = chooseSignal();
    return chosen;
}

} // namespace

struct LineWatch::Shared {
    int32_t descriptor;
    int32_t lines;
    void (*changed)(void*);
    void* argument;
    int32_t signal;
    std::atomic<uint32_t> turns{0};   ///< how often the wait has begun
    std::atomic<uint32_t> running{2}; ///< threads that may still touch something
    Mutex telling;                    ///< one of them at a time
    std::atomic<bool> stopping{false};
    std::atomic<pid_t> thread{0};

    void waitForChanges() noexcept;
    void lookAgain() noexcept;
    void tell() noexcept {
        MutexLock guard(telling);
        if (!stopping)
            changed(argument);
    }
    void end() noexcept {
        running.fetch_sub(1);
        parking::unparkAll(running);
    }
    void interruptUntilChanged(const std::atomic<uint32_t>& word, uint32_t value) noexcept;
};

void LineWatch::Shared::waitForChanges() noexcept {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    thread = static_cast<pid_t>(syscall(SYS_gettid));
    bool told = true;
    for (bool waits = true; waits && !stopping;) {
        turns.fetch_add(1);
        parking::unparkAll(turns);
        told = ioctl(descriptor, TIOCMIWAIT, lines) == 0;
        waits = told || errno == EINTR; // else the device has gone, or cannot tell
        tell();
    }
    thread = 0;
    end();
}

// What changes after the counters were looked at and before the kernel's wait has begun again would be told with
// the next change only. So there is another look a moment after each change, and later ones in case the thread
// that waits stood still just then. While nothing changes nobody looks.
void LineWatch::Shared::lookAgain() noexcept {
    constexpr int32_t pauses[] = {2, 50, 500}; // real milliseconds
    while (!stopping) {
        const uint32_t seen = turns;
        for (int32_t pause : pauses) {
            parking::park(turns, seen, pause);
            if (turns != seen || stopping)
                break;
            tell();
        }
        while (turns == seen && !stopping)
            parking::park(turns, seen, -1);
    }
    end();
}

/// Sends the signal until a word has changed: one that comes before the call begins is for nothing.
void LineWatch::Shared::interruptUntilChanged(const std::atomic<uint32_t>& word, uint32_t value) noexcept {
    while (word == value && thread != 0) {
        if (const pid_t id = thread; id != 0)
            syscall(SYS_tgkill, getpid(), id, signal);
        parking::park(word, value, retry);
    }
}

namespace {

template <auto Main, class Shared> bool startThread(const std::shared_ptr<Shared>& shared) {
    auto own = std::make_unique<std::shared_ptr<Shared>>(shared);
    const auto main = [](void* given) {
        const std::unique_ptr<std::shared_ptr<Shared>> kept(static_cast<std::shared_ptr<Shared>*>(given));
        ((**kept).*Main)();
    };
    if (!thread::start(main, own.get(), "brisolt-lines"))
        return false;
    (void)own.release();
    return true;
}

} // namespace

LineWatch::LineWatch(std::shared_ptr<Shared> shared) noexcept : shared_(std::move(shared)) {}

std::unique_ptr<LineWatch> LineWatch::start(int32_t descriptor, int32_t lines, void (*changed)(void*),
                                            void* argument) {
    const int32_t signal = endingSignal();
    if (signal == 0)
        return nullptr;
    auto shared = std::make_shared<Shared>();
    shared->descriptor = descriptor;
    shared->lines = lines;
    shared->changed = changed;
    shared->argument = argument;
    shared->signal = signal;
    std::unique_ptr<LineWatch> watch(new LineWatch(shared));
    if (!startThread<&Shared::lookAgain>(shared))
        shared->running = 0; // there is nothing to end
    else if (!startThread<&Shared::waitForChanges>(shared))
        shared->running = 1;
    else
        return watch;
    return nullptr;
}

LineWatch::~LineWatch() {
    shared_->stopping = true;
    for (uint32_t left = shared_->running; left != 0; left = shared_->running) {
        shared_->turns.fetch_add(1);
        parking::unparkAll(shared_->turns);
        if (const pid_t id = shared_->thread; id != 0)
            syscall(SYS_tgkill, getpid(), id, shared_->signal);
        parking::park(shared_->running, left, retry);
    }
}

void LineWatch::again() noexcept {
    const uint32_t turn = shared_->turns;
    shared_->interruptUntilChanged(shared_->turns, turn);
}

} // namespace brisolt::tty
