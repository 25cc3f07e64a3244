#include "telephony/service_binding.h"

#include "brisolt_host.h"
#include "platform/forked.h"
#include "platform/module.h"
#include "platform/mutex.h"

namespace brisolt::service {

namespace {

Mutex loading;
void* loaded GUARDED_BY(loading) = nullptr;
bool missing GUARDED_BY(loading) = false; ///< for the life of the process

constexpr LibraryFunctions functions{sizeof functions,  ComHostCreateSharedWindow, ComHostPostMessage,
                                     ComHostOpenDevice, ComHostCloseDevice,        ComHostGetErrorText};

void* load(bool& shortage) noexcept {
    void* module = module::load(moduleName, &shortage);
    if (auto* useLibrary = reinterpret_cast<UseLibrary*>(module::find(module, "brisoltUseLibrary")))
        useLibrary(&functions);
    return module;
}

void* loadedModule() noexcept {
    forked::beginAnewInChild([] { loading.beginAnew(); });
    MutexLock lock(loading);
    if (loaded == nullptr && !missing) {
        bool shortage = false;
        loaded = load(shortage);
        missing = loaded == nullptr && !shortage;
    }
    return loaded;
}

} // namespace

void* entryPoint(const char* name) noexcept {
    return module::find(loadedModule(), name);
}

} // namespace brisolt::service
