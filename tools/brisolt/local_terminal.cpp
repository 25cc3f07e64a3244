#include "local_terminal.h"

#include <csignal>

#include <termios.h>
#include <unistd.h>

namespace {

constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGABRT};

// For the signal handler, which has no other way to them.
termios settings;
volatile sig_atomic_t isRaw = 0;

void putBack() {
    if (isRaw != 0)
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    isRaw = 0;
}

/// Ends the program as the signal would have. Done here and not by way of the event loop, which may be
/// stuck in a write to an output that nobody reads.
void onSignal(int number) {
    putBack();
    signal(number, SIG_DFL);
    raise(number);
}

} // namespace

bool LocalTerminal::present() {
    return isatty(STDIN_FILENO) != 0;
}

LocalTerminal::LocalTerminal() {
    if (!present() || tcgetattr(STDIN_FILENO, &settings) != 0)
        return;
    for (const int number : endingSignals)
        signal(number, onSignal);
    isRaw = 1;
    termios raw = settings;
    cfmakeraw(&raw);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

LocalTerminal::~LocalTerminal() {
    putBack();
    for (const int number : endingSignals)
        signal(number, SIG_DFL);
}
