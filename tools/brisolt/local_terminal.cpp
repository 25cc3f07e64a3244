#include "local_terminal.h"

#include <mutex>

#include <termios.h>
#include <unistd.h>

namespace {

std::mutex mutex;
termios settings, raw;
bool taken = false;

void apply(const termios& wanted) {
    tcsetattr(STDIN_FILENO, TCSANOW, &wanted);
}

} // namespace

bool LocalTerminal::present() {
    return isatty(STDIN_FILENO) != 0;
}

LocalTerminal::LocalTerminal() {
    const std::lock_guard hold(mutex);
    if (!present() || tcgetattr(STDIN_FILENO, &settings) != 0)
        return;
    raw = settings;
    cfmakeraw(&raw);
    taken = true;
    apply(raw);
}

LocalTerminal::~LocalTerminal() {
    putBack();
    const std::lock_guard hold(mutex);
    taken = false;
}

void LocalTerminal::putBack() {
    const std::lock_guard hold(mutex);
    if (taken)
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
}

void LocalTerminal::takeAgain() {
    const std::lock_guard hold(mutex);
    // In the background it is somebody else's, and asking for it would stop the program.
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    if (taken && (foreground < 0 || foreground == getpgrp()))
        apply(raw);
}
