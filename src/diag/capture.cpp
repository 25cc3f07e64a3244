#include "diag/capture.h"

#include <cstring>

#include "diag/capture_ring.h"
#include "platform/memory.h"
#include "platform/mutex.h"
#include "port/capture_hook.h"

namespace brisolt::capture {
namespace {

void keepEntry(Port& port, std::string_view bytes) noexcept {
    add(port, bytes);
}

/// Under captureMutex.
void turnOff(Port& port) noexcept {
    PortRecord& record = *port.record;
    record.captureActive = 0;
    memory::release(record.captureBuffer, static_cast<std::size_t>(record.captureSize));
    record.captureBuffer = nullptr;
    record.captureStart = 0;
    record.captureWritePos = 0;
    record.captureSize = 0;
    std::memset(port.workArea->captureDir, 0, sizeof port.workArea->captureDir);
}

} // namespace

int32_t start(Port& port, std::string_view directory, int32_t capacity) noexcept {
    if (directory.size() >= nameSize || capacity < 1)
        return -1;
    auto* ring = static_cast<char*>(memory::allocateZeroed(static_cast<std::size_t>(capacity)));
    captureHook = keepEntry;
    MutexLock lock(port.captureMutex);
    PortRecord& record = *port.record;
    turnOff(port);
    if (ring == nullptr)
        return -2;
    record.captureBuffer = ring;
    record.captureSize = capacity;
    directory.copy(port.workArea->captureDir, directory.size());
    record.captureActive = 1;
    return 1;
}

int32_t add(Port& port, std::string_view bytes) noexcept {
    MutexLock lock(port.captureMutex);
    if (port.record->captureActive != 1)
        return -2;
    captureRing::add(*port.record, bytes);
    return 1;
}

void clear(Port& port) noexcept {
    MutexLock lock(port.captureMutex);
    if (port.record->captureActive == 1)
        captureRing::clear(*port.record);
}

void stop(Port& port) noexcept {
    MutexLock lock(port.captureMutex);
    turnOff(port);
}

} // namespace brisolt::capture
