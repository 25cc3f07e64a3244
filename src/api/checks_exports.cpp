// Exported: checksums and CRCs.
#include "api/export.h"
#include "brisolt/checks.h"
#include "brisolt/waits.h"
#include "platform/clock.h"
#include "util/checks.h"
#include "util/file_check.h"

using namespace brisolt;
using checks::Bytes;

namespace {

Bytes bytesOf(const void* buffer, int32_t length) noexcept {
    if (buffer == nullptr || length < 1)
        return {};
    return {static_cast<const uint8_t*>(buffer), static_cast<std::size_t>(length)};
}

} // namespace

BRISOLT_EXPORT uint16_t ComCRC16(const void* buffer, int32_t length) {
    return checks::crcCcitt(bytesOf(buffer, length));
}

BRISOLT_EXPORT uint32_t ComCRC16M(const void* buffer, int32_t length, uint32_t start) {
    return (start & 0xFFFF0000) | checks::crc16(static_cast<uint16_t>(start), bytesOf(buffer, length));
}

BRISOLT_EXPORT uint32_t ComCRC32(const void* buffer, int32_t length) {
    return checks::check32(bytesOf(buffer, length));
}

BRISOLT_EXPORT int32_t ComCRC32_File(const char* fileName, uint32_t* check) {
    if (fileName == nullptr || check == nullptr)
        return -1;
    return checks::checkFile(fileName, *check, [] {
        clock::sleep(1);
        ComServiceMessagePump();
    });
}

BRISOLT_EXPORT uint32_t ComGen_CRC(const void* buffer, int32_t length) {
    return checks::check16(bytesOf(buffer, length));
}

BRISOLT_EXPORT uint8_t ComCKSUM8(const void* buffer, int32_t length) {
    return static_cast<uint8_t>(checks::sum(bytesOf(buffer, length)));
}
BRISOLT_EXPORT uint16_t ComCKSUM16(const void* buffer, int32_t length) {
    return static_cast<uint16_t>(checks::sum(bytesOf(buffer, length)));
}
BRISOLT_EXPORT uint32_t ComCKSUM32(const void* buffer, int32_t length) {
    return checks::sum(bytesOf(buffer, length));
}

BRISOLT_EXPORT uint8_t ComXORSUM8(const void* buffer, int32_t length) {
    return checks::exclusiveOr(bytesOf(buffer, length));
}
BRISOLT_EXPORT uint16_t ComXORSUM16(const void* buffer, int32_t length) {
    return checks::exclusiveOr(bytesOf(buffer, length));
}
BRISOLT_EXPORT uint32_t ComXORSUM32(const void* buffer, int32_t length) {
    return checks::exclusiveOr(bytesOf(buffer, length));
}
