#include "files/file_strings.h"

#include <cstring>

#include "platform/mutex.h"
#include "port/tracked_memory.h"

namespace brisolt::fileStrings {

namespace {

bool hasEntry(const PortRecord& record, int32_t index) noexcept {
    return index >= 0 && index < record.fileStringCount && record.fileStringTable != nullptr;
}

char* copyOf(int32_t port, std::string_view name) noexcept {
    if (name.size() >= UINT32_MAX)
        return nullptr; // more than the pool gives in one piece
    auto* copy = static_cast<char*>(tracked::allocate(port, static_cast<uint32_t>(name.size()) + 1));
    if (copy != nullptr)
        std::memcpy(copy, name.data(), name.size()); // zero-filled: it ends already
    return copy;
}

} // namespace

// An emptied list starts on a fresh table; the old one goes with the port's tracked memory.
bool add(Port& port, std::string_view name, uint32_t value) noexcept {
    MutexLock guard(port.filesMutex);
    PortRecord& record = *port.record;
    int32_t count = record.fileStringCount;
    if (count == FileStringTable::room)
        return false;
    if (count == 0) {
        auto* table = static_cast<FileStringTable*>(tracked::allocate(port.number, sizeof(FileStringTable)));
        if (table == nullptr)
            return false;
        record.fileStringTable = table;
    }
    char* copy = copyOf(port.number, name);
    if (copy == nullptr)
        return false;
    record.fileStringTable->names[count] = copy;
    record.fileStringTable->values[count] = value;
    record.fileStringCount = count + 1;
    return true;
}

int32_t count(Port& port) noexcept {
    return port.record->fileStringCount;
}

bool copyName(Port& port, int32_t index, char* buffer) noexcept {
    MutexLock guard(port.filesMutex);
    if (!hasEntry(*port.record, index))
        return false;
    const char* name = port.record->fileStringTable->names[index];
    std::memcpy(buffer, name, std::strlen(name) + 1);
    return true;
}

bool value(Port& port, int32_t index, uint32_t& value) noexcept {
    MutexLock guard(port.filesMutex);
    if (!hasEntry(*port.record, index))
        return false;
    value = port.record->fileStringTable->values[index];
    return true;
}

void empty(Port& port) noexcept {
    MutexLock guard(port.filesMutex);
    // Newest first, as the pool keeps them.
    for (int32_t index = port.record->fileStringCount; index-- > 0;)
        tracked::release(port.number, port.record->fileStringTable->names[index]);
    port.record->fileStringCount = 0;
}

int32_t releaseAll(Port& port) noexcept {
    MutexLock guard(port.filesMutex);
    port.record->fileStringCount = 0;
    port.record->fileStringTable = nullptr;
    return tracked::releaseAll(port.number);
}

} // namespace brisolt::fileStrings
