#include "device/keeper.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "platform/folder_watch.h"
#include "platform/signal.h"
#include "platform/thread.h"

namespace brisolt::drivers::keeper {

namespace {

constinit std::mutex tasksMutex; ///< the list, and every step
constinit Task* first = nullptr;
constinit bool running = false;
constinit std::atomic<Signal*> called{nullptr}; ///< made with the first task, then kept

/// Watches where news would show; what a link leads to may have changed since the last time.
void watchPaths(FolderWatch& folders) noexcept try {
    for (const Task* task = first; task != nullptr; task = task->next)
        if (task->path != nullptr)
            folders.watchFor(task->path);
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then with the next news
}

/// One look at all tasks; the moment of the next.
clock::Deadline stepAll() noexcept {
    clock::Deadline next = clock::Deadline::never();
    for (Task* task = first; task != nullptr; task = task->next)
        next = clock::Deadline::earlier(next, task->step(task->self));
    return next;
}

void sleepUntil(FolderWatch& folders, const clock::Deadline& moment) noexcept try {
    Signal& call = *called;
    Watch watches[] = {{.descriptor = call.descriptor(), .forRead = true},
                       {.descriptor = folders.descriptor(), .forRead = true}};
    waitAny(watches, moment.realMillisecondsLeft());
    call.clear();
    folders.collect([](const std::string&, FolderWatch::Change) {}); // each look is at everything
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): what is left is told again
}

void keep(void*) {
    FolderWatch folders;
    for (;;) {
        clock::Deadline next = clock::Deadline::never();
        {
            const std::scoped_lock guard(tasksMutex);
            if (first == nullptr) {
                running = false;
                return;
            }
            watchPaths(folders); // before the look: what comes in between is told
            next = stepAll();
        }
        sleepUntil(folders, next);
    }
}

bool haveCalled() noexcept {
    if (called.load() != nullptr)
        return true;
    std::unique_ptr<Signal> made(new (std::nothrow) Signal);
    if (made == nullptr || made->descriptor() < 0)
        return false;
    called = made.release();
    return true;
}

} // namespace

bool add(Task& task) noexcept {
    const std::scoped_lock guard(tasksMutex);
    if (!haveCalled())
        return false;
    if (!running && !thread::start(keep, nullptr, "brisolt-keep"))
        return false;
    running = true;
    task.next = first;
    first = &task;
    called.load()->set(); // its path is watched from now on
    return true;
}

void remove(Task& task) noexcept {
    const std::scoped_lock guard(tasksMutex);
    for (Task** link = &first; *link != nullptr; link = &(*link)->next)
        if (*link == &task) {
            *link = task.next;
            break;
        }
    if (first == nullptr)
        wake(); // it has nothing left to do
}

void wake() noexcept {
    if (Signal* call = called.load())
        call->set();
}

} // namespace brisolt::drivers::keeper
