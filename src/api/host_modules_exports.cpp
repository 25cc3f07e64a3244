// The host function about modules.
#include "api/export.h"
#include "brisolt_host.h"
#include "platform/module.h"

BRISOLT_EXPORT int32_t ComHostMapModule(const char* name, const char* path) {
    return brisolt::module::map(name, path) ? 1 : -1;
}
