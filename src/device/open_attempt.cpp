#include "device/open_attempt.h"

#include <new>
#include <utility>

#include "platform/mutex.h"
#include "platform/thread.h"

namespace brisolt::drivers {

namespace {

void close(Opened& opened) noexcept {
    if (opened.self != nullptr)
        opened.driver.close(opened.self);
    opened.self = nullptr;
}

} // namespace

std::shared_ptr<OpenAttempt> OpenAttempt::begin(Task task, void (*ended)() noexcept) noexcept {
    Opened opened = task.opened;
    try {
        auto attempt = std::make_shared<OpenAttempt>();
        auto own = std::make_unique<std::shared_ptr<OpenAttempt>>(attempt);
        attempt->task_ = std::move(task);
        attempt->ended_ = ended;
        if (thread::start(run, own.get(), "brisolt-open")) {
            (void)own.release();
            return attempt;
        }
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then there is no attempt now
    }
    close(opened);
    return nullptr;
}

void OpenAttempt::run(void* argument) {
    const std::unique_ptr<std::shared_ptr<OpenAttempt>> own(
        static_cast<std::shared_ptr<OpenAttempt>*>(argument));
    (*own)->tryToOpen();
}

void OpenAttempt::tryToOpen() noexcept {
    Opened& opened = task_.opened;
    try {
        if (opened.self == nullptr && task_.open(task_.path, task_.options, opened) < 0)
            opened.self = nullptr;
    } catch (const std::bad_alloc&) {
        opened.self = nullptr;
    }
    if (opened.self != nullptr && !task_.settings.setUp(opened))
        close(opened); // it is there, but not as the program needs it
    {
        const MutexLock guard(mutex_);
        over_ = true;
        if (leftBehind_)
            close(opened);
        if (leftBehind_)
            return;
    }
    ended_();
}

OpenAttempt::State OpenAttempt::state() noexcept {
    const MutexLock guard(mutex_);
    return !over_ ? State::underWay : task_.opened.self != nullptr ? State::open : State::failed;
}

Opened OpenAttempt::take() noexcept {
    const MutexLock guard(mutex_);
    Opened taken = task_.opened;
    task_.opened.self = nullptr;
    return taken;
}

void OpenAttempt::leaveBehind() noexcept {
    const MutexLock guard(mutex_);
    leftBehind_ = true;
    if (over_)
        close(task_.opened);
}

} // namespace brisolt::drivers
