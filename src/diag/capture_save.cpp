// The saved files of a capture. Their names end in a slot number, and of many only the latest stay.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "diag/capture.h"
#include "diag/capture_ring.h"
#include "platform/directory.h"
#include "platform/file.h"
#include "platform/mutex.h"
#include "platform/process.h"
#include "port/waits.h"
#include "util/time_strings.h"

namespace brisolt::capture {
namespace {

using Paths = std::vector<std::string>;

constexpr int32_t slotCount = 10;
constexpr std::size_t mostFiles = 8;   ///< that a save finds; it deletes the rest
constexpr std::size_t candidates = 10; ///< for deletion: the first of the list
constexpr int64_t settle = 100;        ///< milliseconds after a deletion
constexpr std::size_t shortestDirectory = 2;
constexpr std::string_view ending = ".txt";

/// Where the files go, which from now on is written with its separator. Empty when there is no such place.
std::string directoryOf(Port& port) {
    MutexLock lock(port.captureMutex);
    std::span<char> field(port.workArea->captureDir);
    std::size_t length = std::strlen(field.data());
    if (length < shortestDirectory)
        return {};
    if (field[length - 1] != '\\' && length + 1 < field.size())
        field[length] = '\\';
    return directory::onHost(field.data());
}

std::string prefixOf(const Port& port) {
    return "comlog" + std::to_string(port.number.load());
}

void deleteOldest(std::span<const std::string> files) noexcept {
    const std::string* oldest = nullptr;
    int64_t time = 0;
    for (const std::string& file : files) {
        int64_t changed = file::modificationTime(file.c_str());
        if (changed < 0 || (oldest != nullptr && changed >= time))
            continue;
        oldest = &file;
        time = changed;
    }
    if (oldest != nullptr)
        file::remove(oldest->c_str()); // not one that somebody has open or keeps from being written
}

void cleanUp(Port& port, const Paths& files) {
    std::span<const std::string> first(files.data(), std::min(files.size(), candidates));
    for (std::size_t left = files.size(); left > mostFiles; --left) {
        deleteOldest(first);
        process::flushStreams();
        sleepMilliseconds(port, settle);
    }
}

int32_t slotOf(std::string_view path) noexcept {
    int32_t slot = 0;
    if (path.size() >= ending.size() + 2) {
        const char* digits = path.data() + path.size() - ending.size() - 2;
        std::from_chars(digits, digits + 2, slot);
    }
    return slot;
}

/// The lowest slot from a first one on that none of the files has, 0 none.
int32_t freeSlot(const Paths& files, int32_t first) {
    for (int32_t slot = first; slot <= slotCount; ++slot)
        if (std::none_of(files.begin(), files.end(), [=](const auto& file) { return slotOf(file) == slot; }))
            return slot;
    return 0;
}

/// comlog3_111926_02.txt
std::string nameOf(const Port& port, int32_t slot) {
    std::string date = timeStringsNow().date;
    std::erase(date, '/');
    return prefixOf(port) + '_' + date + (slot < 10 ? "_0" : "_") + std::to_string(slot).append(ending);
}

struct Captured {
    std::string bytes;
    uint64_t upTo; ///< counted in bytes that were ever added
};

std::optional<Captured> copyOf(Port& port) {
    MutexLock lock(port.captureMutex);
    if (port.record->captureActive != 1)
        return std::nullopt;
    return Captured{captureRing::contents(*port.record), port.record->captureAdded};
}

/// What other threads have added since stays for the next save.
void forget(Port& port, const Captured& captured) noexcept {
    MutexLock lock(port.captureMutex);
    if (port.record->captureActive == 1)
        captureRing::keepLatest(*port.record, port.record->captureAdded - captured.upTo);
}

/// The file of the lowest free slot. Another save may have taken that of the list meanwhile. -4 there is
/// none,
/// -3 it cannot be made.
int32_t createFile(const std::string& place, const Port& port, const Paths& earlier, file::File& file,
                   std::string& path) {
    int32_t slot = freeSlot(earlier, 1);
    while (slot != 0) {
        path = place + nameOf(port, slot);
        file = file::File(path.c_str(),
                          {file::Access::write, file::Sharing::readOnly, file::Opening::createNew});
        if (file)
            return 1;
        if (!file::taken(path.c_str()))
            return -3;
        slot = freeSlot(earlier, slot + 1);
    }
    return -4;
}

/// A file that takes only a part is gone again.
bool writeFile(file::File& file, const std::string& path, std::string_view bytes) {
    constexpr std::size_t mostOfAWrite = 1 << 30;
    bool good = true;
    while (!bytes.empty() && good) {
        auto count = static_cast<int32_t>(std::min(bytes.size(), mostOfAWrite));
        int32_t written = file.write(bytes.data(), count);
        good = written > 0;
        if (!good)
            file::tellFailure("write to", path.c_str());
        bytes.remove_prefix(static_cast<std::size_t>(std::max(written, 0)));
    }
    if (!file.close() && good) {
        file::tellFailure("write to", path.c_str());
        good = false;
    }
    if (!good)
        file::discard(path.c_str());
    return good;
}

} // namespace

int32_t save(Port& port) {
    std::string directory = directoryOf(port);
    if (directory.empty())
        return -2;
    Paths earlier = directory::files(directory, prefixOf(port));
    cleanUp(port, earlier);
    // By the list from before the clean-up: a number comes back one save later than its file went.
    if (freeSlot(earlier, 1) == 0)
        return -4;
    std::optional<Captured> captured = copyOf(port);
    if (!captured)
        return -2;
    file::File file;
    std::string path;
    if (int32_t result = createFile(directory, port, earlier, file, path); result < 1)
        return result;
    if (!writeFile(file, path, captured->bytes))
        return -3;
    process::flushStreams();
    forget(port, *captured);
    return 1;
}

} // namespace brisolt::capture
