// Exported: lists of file names, and names against patterns.
#include "api/border.h"
#include "brisolt/file_lists.h"
#include "files/file_strings.h"
#include "util/file_list.h"
#include "util/file_match.h"

using namespace brisolt;

// ---- lists of files

BRISOLT_EXPORT FileList* ComAddFileList(FileList* list, const char* pattern) {
    if (pattern == nullptr)
        return list;
    return guarded(nullptr, [=] { return lists::add(list, pattern); });
}
BRISOLT_EXPORT int32_t ComGetListCount(FileList* list) {
    return lists::count(list);
}
BRISOLT_EXPORT int32_t ComGetFile(FileList* list, int32_t index, char* buffer) {
    return lists::get(list, index, buffer) ? 1 : 0;
}
BRISOLT_EXPORT int32_t ComGetFile_NoFree(FileList* list, int32_t index, char* buffer) {
    return ComGetFile(list, index, buffer);
}
BRISOLT_EXPORT int32_t ComFreeFileList(FileList* list) {
    return lists::free(list) ? 1 : 0;
}

// ---- the file-string list of a port

BRISOLT_EXPORT int32_t ComAddFileString(int32_t port, const char* name, uint32_t value) {
    if (name == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return fileStrings::add(open, name, value) ? 1 : -1; });
}
BRISOLT_EXPORT int32_t ComGetFileStringCount(int32_t port) {
    return onPort(port, -1, fileStrings::count);
}
BRISOLT_EXPORT int32_t ComGetFileString(int32_t port, int32_t index, char* buffer) {
    if (buffer == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return fileStrings::copyName(open, index, buffer) ? 1 : -1; });
}
BRISOLT_EXPORT int32_t ComGetFileStringSize(int32_t port, int32_t index) {
    return onPort(port, -1, [=](Port& open) {
        uint32_t value = 0;
        return fileStrings::value(open, index, value) ? static_cast<int32_t>(value) : -1;
    });
}
BRISOLT_EXPORT int32_t ComFreeFileString(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        fileStrings::empty(open);
        return 1;
    });
}

// ---- one name against one pattern

BRISOLT_EXPORT int32_t ComCheckFileMatch(const char* pattern, const char* name) {
    return pattern == nullptr || name == nullptr ? -1 : checkFileMatch(pattern, name);
}
