// Exported: what a port does with files: the buffered writer, the checks, the report, files by handle.
#include <algorithm>
#include <cstring>
#include <span>

#include "api/border.h"
#include "brisolt/files.h"
#include "files/buffered_writer.h"
#include "files/diff_report.h"
#include "files/write_check.h"
#include "port/record.h"
#include "util/file_handles.h"

using namespace brisolt;

namespace {

std::span<const uint8_t> bytesAt(const void* bytes, int32_t length) noexcept {
    return {static_cast<const uint8_t*>(bytes), static_cast<std::size_t>(length)};
}

bool usable(const void* bytes, int32_t length) noexcept {
    return length >= 0 && (bytes != nullptr || length == 0);
}

/// The handle of a file, for an open port and a name.
int32_t openFile(int32_t port, const char* name, const file::How& how) noexcept {
    if (name == nullptr || name[0] == '\0')
        return 0;
    return onPort(port, 0, [&](Port&) { return handles::open(name, how); });
}

/// What use(file) gives for the handle's file, not below 0; 0 when there is none.
template <class Use>
int32_t moveBytes(int32_t port, int32_t handle, const void* buffer, int32_t count, Use use) noexcept {
    return onPort(port, -1, [=](Port&) {
        if (handle == 0)
            return 0;
        if (!usable(buffer, count))
            return -1;
        auto file = handles::find(handle);
        return file == nullptr ? 0 : std::max(use(*file), 0);
    });
}

} // namespace

// ---- the report

BRISOLT_EXPORT int32_t ComDiffFile_Report(int32_t port, const char* firstName, const char* secondName,
                                          const char* report) {
    if (firstName == nullptr)
        return -1;
    const char* second = secondName == nullptr ? "" : secondName; // the first is looked at before it
    return onPort(port, -1, [=](Port& open) { return reportDifferences(open, firstName, second, report); });
}

// ---- the buffered writer

BRISOLT_EXPORT int32_t ComBufferFileWrite_Start(int32_t port, const char* name, int32_t mode) {
    if (name == nullptr || std::strlen(name) >= nameSize)
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return bufferedWriter::start(open, name, mode == 1) ? 1 : -1; });
}
BRISOLT_EXPORT int32_t ComBufferFileWrite_Next(int32_t port, const void* bytes, int32_t length) {
    if (!usable(bytes, length))
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return bufferedWriter::add(open, bytesAt(bytes, length)) ? 1 : -1; });
}
BRISOLT_EXPORT int32_t ComBufferFileWrite_Close(int32_t port) {
    return onPort(port, -1, [](Port& open) { return bufferedWriter::finish(open) ? 1 : -1; });
}

// ---- the checks

BRISOLT_EXPORT int32_t ComVerifyFileWriteInit(int32_t port, const char* name, const char* log) {
    if (name == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return writeCheck::startFile(open, name, log); });
}
BRISOLT_EXPORT int32_t ComVerifyFileWrite(int32_t port, const char* name, int32_t offset,
                                          const void* expected, int32_t length) {
    if (name == nullptr || !usable(expected, length))
        return -1;
    return onPort(port, -1, [=](Port& open) {
        return writeCheck::verifyFile(open, name, offset, bytesAt(expected, length));
    });
}
BRISOLT_EXPORT int32_t ComInitVerifyWrite(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        writeCheck::startStream(open);
        return 1;
    });
}
BRISOLT_EXPORT int32_t ComVerifyWrite(int32_t port, const void* bytes, int32_t length) {
    return onPort(port, -1, [=](Port& open) {
        if (length < 1)
            return 1;
        return bytes == nullptr ? -1 : writeCheck::verifyStream(open, bytesAt(bytes, length));
    });
}

// ---- files by handle

BRISOLT_EXPORT int32_t ComOpenWriteFile(int32_t port, const char* name) {
    return openFile(port, name,
                    {.access = file::Access::readWrite,
                     .sharing = file::Sharing::all,
                     .opening = file::Opening::createMissing,
                     .atEnd = true});
}
BRISOLT_EXPORT int32_t ComOpenReadFile(int32_t port, const char* name) {
    if (name == nullptr || !file::exists(name, file::Access::read, file::Sharing::all))
        return 0;
    return openFile(port, name, {file::Access::read, file::Sharing::readOnly});
}

BRISOLT_EXPORT int32_t ComSetFilePointer(int32_t port, int32_t handle, int32_t position) {
    if (position < 0)
        return -1;
    return onPort(port, -1, [=](Port&) {
        auto file = handles::find(handle);
        return file == nullptr ? -1 : static_cast<int32_t>(file->seek(position));
    });
}
BRISOLT_EXPORT int32_t ComCloseFile(int32_t port, int32_t handle) {
    return onPort(port, -1, [=](Port&) { return handle == 0 || handles::close(handle) ? 1 : -1; });
}
BRISOLT_EXPORT int32_t ComWriteFile(int32_t port, int32_t handle, const void* buffer, int32_t count) {
    return moveBytes(port, handle, buffer, count,
                     [=](file::File& file) { return file.write(buffer, count); });
}
BRISOLT_EXPORT int32_t ComReadFile(int32_t port, int32_t handle, void* buffer, int32_t count) {
    return moveBytes(port, handle, buffer, count, [=](file::File& file) { return file.read(buffer, count); });
}
