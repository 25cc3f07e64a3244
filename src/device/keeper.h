// The thread that looks for devices which have gone: one for all of them. It sleeps until somebody says that there
// is something to do, a folder changes in which a device would appear, or a moment comes.
#pragma once

#include "platform/clock.h"

namespace brisolt::drivers::keeper {

/// Something that the keeper looks after; it belongs to whoever added it.
struct Task {
    void* self = nullptr;
    /// Does what there is to do. When to look again at the latest.
    clock::Deadline (*step)(void* self) noexcept = nullptr;
    const char* path = nullptr; ///< where news of it would show; null: nowhere
    bool busy = false;          ///< of a path: a close by somebody is news, too; the step's own
    Task* next = nullptr;
};

/// False when the host has no thread for it.
bool add(Task& task) noexcept;
/// When it returns, the task's step runs no more. Of a task that was never added: nothing.
void remove(Task& task) noexcept;
/// There may be something to do. Any thread; costs little when there is no keeper.
void wake() noexcept;

} // namespace brisolt::drivers::keeper
