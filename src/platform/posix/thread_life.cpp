#include "platform/posix/thread_life.h"

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace brisolt {

namespace {

// The kernel's mark of a task on its way out. It is set before a join returns, while signals still find
// the task for a moment.
constexpr unsigned exiting = 0x4;
constexpr uint64_t birthUnknown = 1;

bool readThreadStatus(uint32_t thread, char* text, size_t size) noexcept {
    char path[64];
    snprintf(path, sizeof path, "/proc/self/task/%u/stat", thread);
    int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    ssize_t count = read(descriptor, text, size - 1);
    close(descriptor);
    text[count > 0 ? count : 0] = 0;
    return count > 0;
}

} // namespace

bool threadLives(uint32_t thread) noexcept {
    return thread != 0 && thread <= INT_MAX &&
           syscall(SYS_tgkill, getpid(), static_cast<pid_t>(thread), 0) == 0;
}

uint64_t threadBirth(uint32_t thread) noexcept {
    char text[512];
    const char* fields = readThreadStatus(thread, text, sizeof text) ? strrchr(text, ')') : nullptr;
    unsigned flags = 0;
    unsigned long long started = 0;
    // Fields 9 and 22: the name before them may hold anything, its closing bracket is the last one.
    if (!fields || sscanf(fields,
                          ") %*c %*d %*d %*d %*d %*d %u %*u %*u %*u %*u %*u %*u"
                          " %*d %*d %*d %*d %*d %*d %llu",
                          &flags, &started) != 2)
        return threadLives(thread) ? birthUnknown : 0; // asked last: it may have ended meanwhile
    return (flags & exiting) != 0 ? 0 : started + birthUnknown + 1;
}

bool sameBirth(uint64_t a, uint64_t b) noexcept {
    return a == b || (a == birthUnknown && b != 0) || (b == birthUnknown && a != 0);
}

} // namespace brisolt
