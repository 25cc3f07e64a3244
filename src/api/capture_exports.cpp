// Exported: capture on failure.
#include "api/border.h"
#include "brisolt/capture.h"
#include "diag/capture.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComSetDebugFileOnFail(int32_t port, const char* directory, int32_t capacity) {
    if (directory == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return capture::start(open, directory, capacity); });
}

BRISOLT_EXPORT int32_t ComWriteDebugFileOnFail(int32_t port, const void* bytes, int32_t length) {
    if (length < 0 || (bytes == nullptr && length > 0))
        return -1;
    std::string_view text(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
    return onPort(port, -1, [=](Port& open) { return capture::add(open, text); });
}

BRISOLT_EXPORT int32_t ComDebugFileOnFail_Save(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        return guarded(-3, {"cannot save what was captured: no memory"}, [&] { return capture::save(open); });
    });
}

BRISOLT_EXPORT int32_t ComClearDebugFileOnFail(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        capture::clear(open);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComStopDebugFileOnFail(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        capture::stop(open);
        return 1;
    });
}
