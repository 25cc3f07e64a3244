#include "platform/posix/file_holders.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "platform/lasting.h"
#include "platform/mutex.h"
#include "platform/posix/open_files.h"

namespace brisolt::file {

namespace {

/// Another program's look at the file is over in no time; whoever has it for longer holds it.
constexpr int32_t looks = 5;
constexpr timespec lookPause{0, 1'000'000};

Mutex& oneLook() noexcept {
    static Lasting<Mutex> mutex;
    return *mutex;
}

} // namespace

Look::Look(const HostName& name) noexcept
    : turn_(oneLook()), descriptor_(openByName(name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {}

Look::~Look() {
    if (descriptor_ < 0)
        return;
    // Closing alone would leave the lease with a child that was forked meanwhile.
    if (leased_)
        ::fcntl(descriptor_, F_SETLEASE, F_UNLCK);
    ::close(descriptor_);
}

Look::Answer Look::keepOthersOff(uint32_t denied) noexcept {
    // Somebody who opens the file during the lease breaks it, and the signal that tells so would by default
    // end the program. This one is ignored by default, and harmless to those who handle it.
    if (::fcntl(descriptor_, F_SETSIG, SIGURG) != 0)
        return Answer::unknown;
    for (int32_t tries = 1; !leased_; ++tries) {
        leased_ = ::fcntl(descriptor_, F_SETLEASE, (denied & reading) != 0 ? F_WRLCK : F_RDLCK) == 0;
        if (leased_)
            break;
        if (errno != EAGAIN)
            return Answer::unknown;
        if (tries == looks)
            return Answer::held;
        ::nanosleep(&lookPause, nullptr);
    }
    return Answer::free;
}

} // namespace brisolt::file
