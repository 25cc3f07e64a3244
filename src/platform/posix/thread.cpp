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
#include "platform/posix/thread_life.h"

namespace brisolt::thread {

namespace {

// The notification callbacks of the program run on these stacks. Pages nobody touches cost nothing.
constexpr size_t stackSize = size_t{1024} * 1024;

std::atomic<int32_t> startsToFail{0};

void* run(void* argument) {
    const Task task = *static_cast<const Task*>(argument);
    char name[16] = {}; // the host takes no longer ones
    if (task.name)
        strncpy(name, task.name, sizeof name - 1);
    pthread_setname_np(pthread_self(), name);
    task.function(task.argument);
    return nullptr;
}

void* runOwned(void* argument) {
    Task task = *std::unique_ptr<Task>(static_cast<Task*>(argument));
    return run(&task);
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

bool create(const Task& task, void* (*runTask)(void*)) noexcept {
    if (!task.function)
        return false;
    if (failThisStart())
        return refused(task.name, EAGAIN);
    Attributes attributes;
    SignalsBlocked blocked; // a new thread inherits the mask
    pthread_t thread;
    int error = pthread_create(&thread, &attributes.value, runTask, const_cast<Task*>(&task));
    return error == 0 || refused(task.name, error);
}

} // namespace

bool start(const Task& task) noexcept {
    return create(task, run);
}

bool start(void (*function)(void*), void* argument, const char* name) noexcept {
    std::unique_ptr<Task> task(new (std::nothrow) Task{function, argument, name});
    if (!task)
        return refused(name, ENOMEM);
    if (!create(*task, runOwned))
        return false;
    (void)task.release();
    return true;
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
