// One attempt to open a device that may take its time over it, on a thread of its own: nobody waits for it, and
// whoever began it may leave it behind.
#pragma once

#include <memory>
#include <string>

#include "device/kept_device.h"
#include "device/remembered_settings.h"
#include "platform/mutex.h"

namespace brisolt::drivers {

class OpenAttempt {
public:
    struct Task {
        std::string path;
        DeviceOptions options;
        OpenInner open = nullptr;
        RememberedSettings settings;
        Opened
            opened; ///< by an earlier attempt, whose settings have changed meanwhile; without a device: opens one
    };
    /// Null when the host has no thread or memory for it; what was opened is closed then. `ended` is called when it is
    /// over, unless it was left behind.
    static std::shared_ptr<OpenAttempt> begin(Task task, void (*ended)() noexcept) noexcept;

    enum class State { underWay, failed, open };
    State state() noexcept;
    /// The device of one that is open is the caller's now.
    Opened take() noexcept;
    /// Whatever comes of it is closed.
    void leaveBehind() noexcept;

private:
    static void run(void* argument);
    void tryToOpen() noexcept;

    Task task_; ///< the thread's while it is under way
    void (*ended_)() noexcept = nullptr;
    Mutex mutex_;
    bool over_ GUARDED_BY(mutex_) = false;
    bool leftBehind_ GUARDED_BY(mutex_) = false;
};

} // namespace brisolt::drivers
