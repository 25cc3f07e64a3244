// Exported: bytes, strings and hex; programs and sounds of the host.
#include <cstring>
#include <span>

#include "api/border.h"
#include "brisolt/conversions.h"
#include "diag/array_dump.h"
#include "platform/process.h"
#include "platform/sound.h"
#include "util/byte_strings.h"
#include "util/hex.h"

using namespace brisolt;

namespace {

/// Null stands for nothing only where nothing is to be read.
bool readable(const void* bytes, int64_t length) noexcept {
    return bytes != nullptr || length < 1;
}

std::span<const uint8_t> bytesOf(const void* bytes, int64_t length) noexcept {
    return {static_cast<const uint8_t*>(bytes), length < 1 ? 0 : static_cast<std::size_t>(length)};
}

} // namespace

// ---- bytes and strings

BRISOLT_EXPORT uint16_t ComSwapBytes_16Int(uint16_t value) {
    return static_cast<uint16_t>(value << 8 | value >> 8);
}
BRISOLT_EXPORT uint32_t ComSwapBytes_32Int(uint32_t value) {
    return value << 24 | (value & 0xFF00) << 8 | (value >> 8 & 0xFF00) | value >> 24;
}
BRISOLT_EXPORT int32_t ComSwapBytes_String(const void* source, void* destination, int32_t length) {
    if (!readable(source, length) || !readable(destination, length))
        return -1;
    byteStrings::reverse(bytesOf(source, length), static_cast<uint8_t*>(destination));
    return 1;
}

BRISOLT_EXPORT int32_t ComStr_To_Array(const void* source, void* destination, int32_t length) {
    if (!readable(source, length) || !readable(destination, length))
        return -1;
    if (length > 0)
        std::memmove(destination, source, static_cast<std::size_t>(length));
    return 1;
}
BRISOLT_EXPORT int32_t ComArray_To_String(char* destination, const void* source, int32_t length) {
    if (length < 0 || destination == nullptr || !readable(source, length))
        return -1;
    return byteStrings::copyAsString(bytesOf(source, length), destination);
}
BRISOLT_EXPORT int32_t ComStr_To_Array_Element(const void* array, int32_t element) {
    return array == nullptr || element < 1 ? -1 : static_cast<const uint8_t*>(array)[element - 1];
}

BRISOLT_EXPORT int32_t ComConvertBytetoHEXASCII(uint8_t value, char* buffer) {
    if (buffer == nullptr)
        return -1;
    hex::putPadded(buffer, value);
    return 1;
}
BRISOLT_EXPORT int32_t ComConvertHEXASCIItoByte(const char* text) {
    return text == nullptr ? -1 : hex::parse(text);
}
BRISOLT_EXPORT int32_t ComConvertStringtoHEXString(char* destination, const void* source, uint32_t length) {
    if (destination == nullptr || !readable(source, length))
        return -1;
    byteStrings::hexString(bytesOf(source, length), destination);
    return 1;
}

BRISOLT_EXPORT int32_t ComArray_Diagnose(const void* array, int32_t length, const char* fileName) {
    if (fileName == nullptr || !readable(array, length))
        return -1;
    return guarded(-1, [=] { return dumpArray(bytesOf(array, length), fileName); });
}

// ---- programs

BRISOLT_EXPORT int32_t ComSystem(const char* program, const char* argument1, const char* argument2) {
    process::startDetached(program, argument1, argument2);
    return 1;
}
BRISOLT_EXPORT int32_t ComSys(const char* commandLine) {
    return process::runCommand(commandLine);
}
BRISOLT_EXPORT int32_t ComFlushAll(void) {
    process::flushStreams();
    return 1;
}

// ---- sounds

BRISOLT_EXPORT void ComBeep(void) {
    sound::beep();
}
BRISOLT_EXPORT int32_t Com_PlaySound(const char* fileName) {
    return fileName != nullptr && sound::play(fileName) ? 1 : -1;
}
