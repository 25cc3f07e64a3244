// Tells a window or a thread of serial devices that come and go. While somebody asks, one thread sleeps until the
// folder of the devices changes.
#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "platform/folder_watch.h"
#include "platform/forked.h"
#include "platform/message.h"
#include "platform/mutex.h"
#include "platform/posix/device_list.h"
#include "platform/posix/kernel_files.h"
#include "platform/serial.h"
#include "platform/signal.h"
#include "platform/thread.h"

namespace brisolt::serial {

namespace {

/// One life of the thread: it belongs to the thread and to whoever asked.
struct Teller {
    Mutex mutex;
    int32_t window GUARDED_BY(mutex) = 0;
    uint32_t thread GUARDED_BY(mutex) = 0;
    bool over GUARDED_BY(mutex) = false; ///< nobody asks any more
    Signal called;
    FolderWatch folders;
    std::vector<std::string> known; ///< the thread's

    bool usable() const noexcept { return called.descriptor() >= 0 && folders.usable(); }
    void run();
    void compare();
    void tell(bool came) noexcept;
};

constinit Mutex tellerMutex;
constinit std::shared_ptr<Teller>*
    teller GUARDED_BY(tellerMutex) = nullptr; ///< under tellerMutex; null: nobody asks

/// The serial devices that can be opened by a name; none at all when the host fails to tell.
std::optional<std::vector<std::string>> present() {
    std::optional<std::vector<ListedDevice>> devices = listBelow("/sys/class/tty");
    if (!devices)
        return std::nullopt;
    std::vector<std::string> paths;
    for (ListedDevice& device : *devices)
        if (kernelFiles::isThere(device.path))
            paths.push_back(std::move(device.path));
    std::sort(paths.begin(), paths.end());
    return paths;
}

void Teller::tell(bool came) noexcept {
    MutexLock guard(mutex); // who has ended it gets nothing afterwards
    if (over)
        return;
    if (window != 0)
        message::postToWindow(window, COM_HOST_MESSAGE_DEVICES, came ? 1 : 0, 0);
    else
        message::postToThread(thread, COM_HOST_MESSAGE_DEVICES, came ? 1 : 0, 0);
}

void Teller::compare() {
    std::optional<std::vector<std::string>> devices = present();
    if (!devices)
        return; // the next news show these, too
    std::vector<std::string> now = std::move(*devices);
    const auto missingIn = [](const std::vector<std::string>& paths, const std::string& path) {
        return !std::binary_search(paths.begin(), paths.end(), path);
    };
    for (const std::string& path : known)
        if (missingIn(now, path))
            tell(false);
    for (const std::string& path : now)
        if (missingIn(known, path))
            tell(true);
    known = std::move(now);
}

void Teller::run() {
    for (;;) {
        Watch watches[] = {{.descriptor = called.descriptor(), .forRead = true},
                           {.descriptor = folders.descriptor(), .forRead = true}};
        waitAny(watches, -1);
        {
            MutexLock guard(mutex);
            if (over)
                return;
        }
        try {
            folders.collect([](const std::string&, FolderWatch::Change) {}); // a look is at everything
            compare();
        } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): the next news show this one, too
        }
    }
}

void tellerMain(void* argument) {
    const std::unique_ptr<std::shared_ptr<Teller>> own(static_cast<std::shared_ptr<Teller>*>(argument));
    (*own)->run();
}

void endTeller() noexcept WITH_LOCK(tellerMutex) {
    const std::unique_ptr<std::shared_ptr<Teller>> ended(teller);
    teller = nullptr;
    if (ended == nullptr)
        return;
    MutexLock guard((*ended)->mutex);
    (*ended)->over = true;
    (*ended)->called.set();
}

void beginAnew() noexcept LOCKS_UNCHECKED {
    tellerMutex.beginAnew();
    teller = nullptr;
}

bool startTeller(int32_t window, uint32_t thread) WITH_LOCK(tellerMutex) {
    auto made = std::make_shared<Teller>();
    if (!made->usable() || !made->folders.watchFor("/dev/ttyS0"))
        return false;
    {
        MutexLock guard(made->mutex);
        made->window = window;
        made->thread = thread;
    }
    std::optional<std::vector<std::string>> known =
        present(); // after the watch: what comes in between is told
    if (!known)
        return false;
    made->known = std::move(*known);
    auto ours = std::make_unique<std::shared_ptr<Teller>>(made);
    auto theirs = std::make_unique<std::shared_ptr<Teller>>(made);
    if (!thread::start(tellerMain, theirs.get(), "brisolt-news"))
        return false;
    (void)theirs.release();
    teller = ours.release();
    forked::beginAnewInChild(beginAnew);
    return true;
}

} // namespace

bool tellOfDevices(int32_t window, uint32_t thread) {
    MutexLock guard(tellerMutex);
    if (window == 0 && thread == 0) {
        endTeller();
        return true;
    }
    if (teller == nullptr)
        return startTeller(window, thread);
    MutexLock theirs((*teller)->mutex);
    (*teller)->window = window;
    (*teller)->thread = thread;
    return true;
}

} // namespace brisolt::serial
