#include "device/keeper.h"

#include <atomic>
#include <memory>
#include <new>
#include <optional>

#include "platform/folder_watch.h"
#include "platform/forked.h"
#include "platform/mutex.h"
#include "platform/signal.h"
#include "platform/thread.h"

namespace brisolt::drivers::keeper {

namespace {

constinit Mutex tasksMutex; ///< the list, and every step
constinit Task* first GUARDED_BY(tasksMutex) = nullptr;
constinit bool running GUARDED_BY(tasksMutex) = false;
constinit std::atomic<Signal*> called{nullptr}; ///< made with the first task, then kept

/// Watches where news would show; what a link leads to may have changed since the last time.
void watchPaths(FolderWatch& folders) noexcept WITH_LOCK(tasksMutex) {
    try {
        for (const Task* task = first; task != nullptr; task = task->next)
            if (task->path != nullptr)
                folders.watchFor(task->path);
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then with the next news
    }
}

/// One look at all tasks; the moment of the next.
clock::Deadline stepAll() noexcept WITH_LOCK(tasksMutex) {
    clock::Deadline next = clock::Deadline::never();
    for (Task* task = first; task != nullptr; task = task->next)
        next = clock::Deadline::earlier(next, task->step(task->self));
    return next;
}

/// Made after the step: the closes of its own tries are no news.
void watchBusy(std::optional<CloseWatch>& closes) noexcept WITH_LOCK(tasksMutex) {
    for (const Task* task = first; task != nullptr; task = task->next) {
        if (task->path == nullptr || !task->busy)
            continue;
        if (!closes.has_value())
            closes.emplace();
        closes->watchFor(task->path);
    }
}

void sleepUntil(FolderWatch& folders, int32_t closes, const clock::Deadline& moment) noexcept try {
    Signal& call = *called;
    Watch watches[] = {{.descriptor = call.descriptor(), .forRead = true},
                       {.descriptor = folders.descriptor(), .forRead = true},
                       {.descriptor = closes, .forRead = true}};
    waitAny(watches, moment.realMillisecondsLeft());
    call.clear();
    folders.collect([](const std::string&, FolderWatch::Change) {}); // each look is at everything
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): what is left is told again
}

void keep(void*) {
    std::optional<FolderWatch> folders;
    for (;;) {
        if (!folders.has_value() || !folders->usable())
            folders.emplace(); // the host may be better off than the last time
        clock::Deadline next = clock::Deadline::never();
        std::optional<CloseWatch> closes;
        {
            const MutexLock guard(tasksMutex);
            if (first == nullptr) {
                running = false;
                return;
            }
            watchPaths(*folders); // before the look: what comes in between is told
            next = stepAll();
            watchBusy(closes);
        }
        sleepUntil(*folders, closes.has_value() ? closes->descriptor() : -1, next);
    }
}

void beginAnew() noexcept LOCKS_UNCHECKED {
    tasksMutex.beginAnew();
    first = nullptr;
    running = false;
    called = nullptr; // its descriptor is the parent's, too
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
    const MutexLock guard(tasksMutex);
    if (!haveCalled())
        return false;
    forked::beginAnewInChild(beginAnew);
    if (!running && !thread::start(keep, nullptr, "brisolt-keep"))
        return false;
    running = true;
    task.next = first;
    first = &task;
    called.load()->set(); // its path is watched from now on
    return true;
}

void remove(Task& task) noexcept {
    const MutexLock guard(tasksMutex);
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
