#include "platform/sound.h"

#include <exception>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <string>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/posix/file_names.h"
#include "platform/process.h"

namespace brisolt::sound {
namespace {

/// The first one that the host has and that can play it does. A player of a sound server that does not run
/// fails at once.
constexpr const char* players =
    R"({ paplay "$1" || pw-play "$1" || aplay -q "$1"; } </dev/null >/dev/null 2>&1 && echo played)";

/// The signal that a terminal sends to a program in the background that writes to it would stop us.
class WritesFromBackground {
public:
    WritesFromBackground() noexcept {
        sigset_t writing;
        sigemptyset(&writing);
        sigaddset(&writing, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &writing, &before_);
    }
    ~WritesFromBackground() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    WritesFromBackground(const WritesFromBackground&) = delete;
    WritesFromBackground& operator=(const WritesFromBackground&) = delete;

private:
    sigset_t before_{};
};

/// Where a player finds the file, and does not take its name for an option.
std::string pathForPlayer(const char* path) {
    std::string name = file::nameOnHost(path);
    return name.starts_with('-') ? "./" + name : name;
}

} // namespace

void beep() noexcept try {
    // A terminal that is held must not hold us.
    int terminal = ::open("/dev/tty", O_WRONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (terminal < 0)
        return;
    WritesFromBackground allowed;
    bool rung = ::write(terminal, "\a", 1) == 1;
    ::close(terminal);
    if (!rung)
        setErrorText("the terminal takes no bell");
} catch (const std::exception&) { // NOLINT(bugprone-empty-catch): no memory for the text
}

bool play(const char* path) noexcept try {
    std::string file = pathForPlayer(path);
    if (::access(file.c_str(), R_OK) != 0) {
        setErrorText("cannot play " + file + ": it cannot be read");
        return false;
    }
    if (process::answers(players, file.c_str()))
        return true;
    setErrorText("cannot play " + file + ": paplay, pw-play and aplay are missing or refuse it");
    return false;
} catch (const std::exception&) {
    return false; // no memory
}

} // namespace brisolt::sound
