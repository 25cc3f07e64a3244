#include "platform/signal_gate.h"

#include <csignal>

#include "platform/posix/gated_poll.h"

namespace brisolt {

namespace {

thread_local bool shut = false;
thread_local bool slept = false; ///< with the gate shut; the first sleep lets in whoever came before it
thread_local sigset_t outside;   ///< the mask of a thread whose gate is shut

bool passesBy(int signal) noexcept {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
        return true;
    const bool harmless = signal == SIGCHLD || signal == SIGURG || signal == SIGWINCH;
    return action.sa_handler == SIG_DFL && harmless;
}

} // namespace

SignalGate::SignalGate(bool shuts) noexcept : shuts_(shuts && !shut) {
    if (!shuts_)
        return;
    slept = false;
    sigset_t held;
    sigfillset(&held);
    for (const int signal :
         {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT})
        sigdelset(&held, signal);
    shut = pthread_sigmask(SIG_BLOCK, &held, &outside) == 0;
}

SignalGate::~SignalGate() {
    if (!shuts_ || !shut)
        return;
    shut = false;
    pthread_sigmask(SIG_SETMASK, &outside, nullptr);
}

bool SignalGate::knocked() noexcept {
    sigset_t pending;
    if (!shut || !slept || sigpending(&pending) != 0 || sigisemptyset(&pending) != 0)
        return false;
    for (int signal = 1; signal <= SIGRTMAX; ++signal)
        if (sigismember(&pending, signal) == 1 && sigismember(&outside, signal) == 0 && !passesBy(signal))
            return true;
    return false;
}

int32_t gatedPoll(std::span<pollfd> set, int32_t milliseconds) noexcept {
    if (!shut)
        return poll(set.data(), set.size(), milliseconds);
    slept = true;
    const timespec limit{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1'000'000L};
    return ppoll(set.data(), set.size(), milliseconds < 0 ? nullptr : &limit, &outside);
}

} // namespace brisolt
