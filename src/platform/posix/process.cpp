#include "platform/process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

// The runtime library locks every stream to flush all of them, the reading ones too, and a thread that waits
// for a line from the terminal holds the lock of standard input. In that case only the two standard output
// streams are flushed. Other streams that are being read from tell nobody; behind those we wait.
void flushStreams() noexcept {
    if (ftrylockfile(stdin) == 0) {
        fflush(nullptr);
        funlockfile(stdin);
        return;
    }
    for (FILE* stream : {stdout, stderr}) {
        if (ftrylockfile(stream) == 0) {
            fflush(stream);
            funlockfile(stream);
        }
    }
}

} // namespace brisolt::process
