// Reading and writing.
#include "api/border.h"
#include "brisolt/stream.h"
#include "stream/reading.h"
#include "stream/stream_settings.h"
#include "stream/timed_reads.h"
#include "stream/writing.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComRead(int32_t port, void* buffer, int32_t count) {
    return onPort(port, -1, [=](Port& open) { return read(open, buffer, count); });
}

BRISOLT_EXPORT int32_t ComGetc(int32_t port) {
    return onPort(port, -1, readByte);
}

BRISOLT_EXPORT int32_t ComReadTimed(int32_t port, void* buffer, int32_t count, int32_t timeout) {
    if (buffer == nullptr && count > 0)
        return -1;
    return onPort(port, -1, [=](Port& open) { return readTimed(open, buffer, count, timeout); });
}

BRISOLT_EXPORT int32_t ComReadBuf(int32_t port, void* buffer, int32_t terminator, int32_t maximum,
                                  int32_t timeout) {
    if (buffer == nullptr || terminator < 0 || maximum < 0 || timeout < 1)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        return readBuffer(open, static_cast<uint8_t*>(buffer), terminator, maximum, timeout);
    });
}

BRISOLT_EXPORT int32_t ComReadBufToQuiet(int32_t port, void* buffer, int32_t size, int32_t quiet) {
    if (buffer == nullptr || size < 1 || quiet < 1)
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return readToQuiet(open, static_cast<uint8_t*>(buffer), size, quiet); });
}

BRISOLT_EXPORT int32_t ComReadBufToEmpty(int32_t port, void* buffer, int32_t terminator, int32_t maximum) {
    if (buffer == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        return readToEmpty(open, static_cast<uint8_t*>(buffer), terminator, maximum);
    });
}

BRISOLT_EXPORT int32_t ComStatus(int32_t port) {
    return onPort(port, -1, bytesWaiting);
}

BRISOLT_EXPORT int32_t ComWrite(int32_t port, void* buffer, int32_t count) {
    return onPort(port, -1, [=](Port& open) { return write(open, buffer, count); });
}

BRISOLT_EXPORT int32_t ComPutc(int32_t port, int32_t value) {
    return onPort(port, -1, [=](Port& open) { return writeByte(open, value); });
}

BRISOLT_EXPORT int32_t ComPuts(int32_t port, const char* string) {
    if (string == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return writeString(open, string); });
}

BRISOLT_EXPORT int32_t ComOutBufStatus(int32_t port) {
    return onPort(port, -1, bytesUnsent);
}

BRISOLT_EXPORT int32_t ComFlush(int32_t port) {
    return onPort(port, -1, [](Port& open) { return flushReceived(open, open.record->flushDelay); });
}

BRISOLT_EXPORT int32_t Com_Flush(int32_t port, int32_t seconds) {
    return onPort(port, -1, [=](Port& open) { return flushReceived(open, seconds); });
}

BRISOLT_EXPORT int32_t ComFlushOutBuf(int32_t port) {
    return onPort(port, -1, flushUnsent);
}

BRISOLT_EXPORT int32_t ComFlushImmediate(int32_t port) {
    return onPort(port, -1, flushDevice);
}

BRISOLT_EXPORT int32_t ComSetWriteTimeout(int32_t port, uint32_t milliseconds) {
    return onPort(port, -1, [=](Port& open) { return setWriteTimeout(open, milliseconds); });
}

BRISOLT_EXPORT int32_t ComSetPortMaxWriteChars(int32_t port, int32_t count) {
    return onPort(port, -1, [=](Port& open) { return setMaxWriteChars(open, count); });
}

BRISOLT_EXPORT int32_t ComSetLineErrorReplacement(int32_t port, int32_t enable, int32_t replacement) {
    return onPort(port, -1, [=](Port& open) {
        return setErrorReplacement(open, enable, static_cast<uint8_t>(replacement & 0xFF));
    });
}

BRISOLT_EXPORT int32_t ComGetLineError(int32_t port) {
    return onPort(port, -1, takeLineErrors);
}
