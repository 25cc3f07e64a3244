// The port record's address, and tracked memory.
#include "api/border.h"
#include "brisolt/ports.h"
#include "files/file_strings.h"
#include "port/tracked_memory.h"

using namespace brisolt;

BRISOLT_EXPORT void* ComPidtoP(int32_t port) {
    return onPort(port, nullptr, [](Port& open) { return static_cast<void*>(open.record); });
}

BRISOLT_EXPORT void ComInitMalloc(int32_t port) {
    tracked::forget(port);
}

BRISOLT_EXPORT void* ComMalloc(int32_t port, uint32_t size) {
    return tracked::allocate(port, size);
}

BRISOLT_EXPORT int32_t ComFree(int32_t port, void* address) {
    return tracked::release(port, address);
}

BRISOLT_EXPORT int32_t ComFreeAll(int32_t port) {
    HeldPort held(port);
    return held ? fileStrings::releaseAll(*held) : tracked::releaseAll(port);
}
