// Exported: files by name.
#include <algorithm>

#include "api/border.h"
#include "brisolt/files.h"
#include "platform/file.h"
#include "util/file_copy.h"
#include "util/file_diff.h"
#include "util/file_list.h"

using namespace brisolt;
using file::Access;
using file::Sharing;

namespace {

int32_t narrow(int64_t number) noexcept {
    return static_cast<int32_t>(std::clamp<int64_t>(number, INT32_MIN, INT32_MAX));
}

int32_t copyWith(int32_t (*operation)(const char*, const char*), const char* destination,
                 const char* source) noexcept {
    if (source == nullptr)
        return copying::noSource;
    if (destination == nullptr)
        return copying::noDestination;
    return guarded(copying::noSource, {"cannot copy ", source, ": no memory"},
                   [=] { return operation(destination, source); });
}

} // namespace

// ---- existence, size and time

BRISOLT_EXPORT int32_t ComFileExist(const char* name) {
    return name != nullptr && file::exists(name, Access::readWrite, Sharing::none) ? 1 : 0;
}
BRISOLT_EXPORT int32_t ComFileExist_Read_Shared(const char* name) {
    return name != nullptr && file::exists(name, Access::read, Sharing::all) ? 1 : 0;
}
BRISOLT_EXPORT int32_t ComFileSize(const char* name) {
    if (name == nullptr || !file::exists(name, Access::read, Sharing::readOnly))
        return 0;
    return std::max(narrow(file::Reader(name, Sharing::readOnly).size()), 0);
}
BRISOLT_EXPORT int32_t ComGetmtime(const char* name) {
    return name == nullptr ? -1 : narrow(file::modificationTime(name));
}
BRISOLT_EXPORT int32_t _getfilesize(FILE* stream) {
    return stream == nullptr ? -1 : narrow(file::sizeBehind(stream));
}

// ---- comparing, copying, deleting

BRISOLT_EXPORT int32_t ComDiffFile(const char* firstName, const char* secondName) {
    if (firstName == nullptr)
        return noFirstFile;
    return firstDifference(firstName, secondName == nullptr ? "" : secondName);
}

BRISOLT_EXPORT int32_t ComAppendFile(const char* destination, const char* source) {
    return copyWith(copying::append, destination, source);
}
BRISOLT_EXPORT int32_t ComCopyFile(const char* destination, const char* source) {
    return copyWith(copying::copy, destination, source);
}
BRISOLT_EXPORT int32_t ComMoveFile(const char* destination, const char* source) {
    return copyWith(copying::move, destination, source);
}

BRISOLT_EXPORT int32_t ComDeleteFile(const char* name) {
    return name != nullptr && file::remove(name) ? 1 : 0;
}
BRISOLT_EXPORT int32_t ComDeleteMultipleFiles(const char* pattern) {
    return guarded(1, [=] {
        if (pattern != nullptr)
            lists::removeFiles(pattern);
        return 1;
    });
}
