#include "telephony/service_binding.h"

#include <mutex>

#include "platform/module.h"

namespace brisolt::service {

namespace {

std::mutex loading;
void* loaded = nullptr;
bool missing = false; ///< for the life of the process

void* loadedModule() noexcept {
    std::lock_guard lock(loading);
    if (loaded == nullptr && !missing) {
        bool shortage = false;
        loaded = module::load(moduleName, &shortage);
        missing = loaded == nullptr && !shortage;
    }
    return loaded;
}

} // namespace

void* entryPoint(const char* name) noexcept {
    return module::find(loadedModule(), name);
}

} // namespace brisolt::service
