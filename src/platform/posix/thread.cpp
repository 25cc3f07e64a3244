#include "platform/thread.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/forked.h"
#include "platform/posix/thread_end.h"
#include "platform/posix/thread_life.h"

namespace brisolt::thread {

namespace {

// The notification callbacks of the program run on these stacks. Pages nobody touches cost nothing.
constexpr size_t stackSize = size_t{1024} * 1024;

std::atomic<int32_t> startsToFail{0};

struct Start {
    void (*function)(void*);
    void* argument;
    char name[16];
};

void* run(void* argument) {
    Start start = *std::unique_ptr<Start>(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start.name);
    start.function(start.argument);
    return nullptr;
}

// The program's signals must reach the program's own threads. What a fault raises concerns the thread that
// has it: were it blocked, the program's crash handler would never see it.
struct SignalsBlocked {
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&all, fault);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before;
};

// The host takes the thread-local data of the program and its libraries out of the stack. In whole pages: it
// puts its own record of a thread at the end of the size that it was asked for, and a record that ends in the
// middle of a page costs every thread one more.
size_t threadLocalPages() noexcept {
    size_t size = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* module, size_t, void* sum) {
            for (size_t i = 0; i < module->dlpi_phnum; ++i)
                if (const auto& part = module->dlpi_phdr[i]; part.p_type == PT_TLS)
                    *static_cast<size_t*>(sum) += part.p_memsz + part.p_align;
            return 0;
        },
        &size);
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

struct Attributes {
    Attributes() noexcept {
        pthread_attr_init(&value);
        pthread_attr_setdetachstate(&value, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&value, stackSize + threadLocalPages());
    }
    ~Attributes() { pthread_attr_destroy(&value); }
    pthread_attr_t value;
};

bool refused(const char* name, int error) noexcept {
    try {
        setErrorText(std::string("cannot start the thread ") + (name ? name : "") + ": " +
                     std::strerror(error));
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then there is no text either
    }
    return false;
}

bool failThisStart() noexcept {
    int32_t left = startsToFail.load();
    while (left > 0 && !startsToFail.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
}

} // namespace

bool start(void (*function)(void*), void* argument, const char* name) noexcept {
    if (!function)
        return false;
    if (failThisStart())
        return refused(name, EAGAIN);
    std::unique_ptr<Start> start(new (std::nothrow) Start{function, argument, {}});
    if (!start)
        return refused(name, ENOMEM);
    if (name)
        strncpy(start->name, name, sizeof start->name - 1);
    Attributes attributes;
    SignalsBlocked blocked; // a new thread inherits the mask
    pthread_t thread;
    if (int error = pthread_create(&thread, &attributes.value, run, start.get()); error != 0)
        return refused(name, error);
    (void)start.release();
    return true;
}

bool atEnd(void (*function)(void*), void* argument) noexcept {
    return atThreadEnd(function, argument);
}

namespace {

thread_local uint32_t id = 0;

} // namespace

uint32_t currentId() noexcept {
    if (id == 0) {
        id = static_cast<uint32_t>(gettid());
        forked::beginAnewInChild([] { id = 0; });
    }
    return id;
}

void setPriority(uint32_t threadId, Priority priority) noexcept {
    // The host takes the identifier of any process here, and 0 for the caller.
    if (!threadLives(threadId))
        return;
    static constexpr int niceness[] = {10, 5, 0, -5, -10, -15};
    setpriority(PRIO_PROCESS, threadId, niceness[static_cast<size_t>(priority)]);
}

void failStarts(int32_t count) noexcept {
    startsToFail = count;
}

} // namespace brisolt::thread
