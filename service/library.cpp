#include "library.h"

#include <atomic>

#include "border.h"
#include "brisolt_host.h"
#include "switchboard.h"

using namespace brisolt::service;

namespace {

constexpr LibraryFunctions linked{sizeof linked,     ComHostCreateSharedWindow, ComHostPostMessage,
                                  ComHostOpenDevice, ComHostCloseDevice,        ComHostGetErrorText};
std::atomic<const LibraryFunctions*> used{&linked};

} // namespace

const LibraryFunctions& brisolt::service::library() noexcept {
    return *used.load();
}

BRISOLT_EXPORT void brisoltUseLibrary(const LibraryFunctions* functions) {
    guarded([&] {
        const std::lock_guard guard(switchboard().mutex);
        if (functions != nullptr && functions->size >= sizeof *functions && switchboard().window <= 0)
            used = functions;
        return result::success;
    });
}
