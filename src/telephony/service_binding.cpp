#include "telephony/service_binding.h"

namespace brisolt::service {

void* loadedModule() noexcept {
    static void* const module = module::load(moduleName);
    return module;
}

} // namespace brisolt::service
