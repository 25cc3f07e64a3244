#include "interruption.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <unistd.h>

#include <brisolt_host.h>

#include "local_terminal.h"

namespace interruption {

namespace {

constexpr auto patience = std::chrono::seconds(4);
constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

std::atomic<int> received{0};
std::atomic<bool> forgotten{false};
sigset_t before;

void dieOf(int number) {
    std::signal(number, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(number);
}

void end(int number, uint32_t mainThread) {
    if (received.exchange(number) != 0)
        return;
    ComHostPostQuit(mainThread);
    std::thread([number] {
        std::this_thread::sleep_for(patience);
        LocalTerminal::putBack();
        dieOf(number);
    }).detach();
}

void take(const sigset_t& signals, uint32_t mainThread) {
    for (;;) {
        int number = 0;
        if (sigwait(&signals, &number) != 0)
            continue;
        if (number == SIGTSTP)
            suspend();
        else if (number == SIGCONT)
            LocalTerminal::takeAgain();
        else
            end(number, mainThread);
    }
}

} // namespace

void begin() {
    // A reader that leaves shows as a failed write, so that a port is closed properly.
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    // What nohup or a shell has told us not to hear is left alone; a blocked signal would be waited for all the same.
    for (const int number : endingSignals) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&signals, number);
    }
    sigaddset(&signals, SIGTSTP);
    sigaddset(&signals, SIGCONT);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    const uint32_t mainThread = ComHostThreadId();
    std::thread([signals, mainThread] { take(signals, mainThread); }).detach();
}

bool asked() {
    return received.load() != 0;
}

void obey() {
    if (const int number = received.load(); number != 0 && !forgotten)
        dieOf(number);
}

void forget() {
    forgotten = true;
}

void suspend() {
    LocalTerminal::putBack();
    // Stops all threads and returns when the program goes on; the SIGCONT that comes with it takes the terminal
    // again.
    raise(SIGSTOP);
}

const void* originalMask() {
    return &before;
}

} // namespace interruption
