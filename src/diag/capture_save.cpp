// The saved files of a capture. Their names end in a slot number, and of many only the latest stay.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "diag/capture.h"
#include "diag/capture_ring.h"
#include "platform/directory.h"
#include "platform/file.h"
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
    std::lock_guard lock(port.captureMutex);
    std::span<char> field(port.record->captureDir);
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
        int64_t changed = directory::modified(file);
        if (changed < 0 || (oldest != nullptr && changed >= time))
            continue;
        oldest = &file;
        time = changed;
    }
    if (oldest != nullptr)
        directory::removeFile(*oldest);
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

/// The lowest slot that none of the files has, 0 none.
int32_t freeSlot(const Paths& files) {
    for (int32_t slot = 1; slot <= slotCount; ++slot)
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
    std::lock_guard lock(port.captureMutex);
    if (port.record->captureActive != 1)
        return std::nullopt;
    return Captured{captureRing::contents(*port.record), port.record->captureAdded};
}

/// What other threads have added since stays for the next save.
void forget(Port& port, const Captured& captured) {
    std::lock_guard lock(port.captureMutex);
    if (port.record->captureActive == 1)
        captureRing::keepLatest(*port.record, port.record->captureAdded - captured.upTo);
}

/// Nobody writes to the file meanwhile. One that takes only a part is gone again.
bool writeFile(const std::string& path, std::string_view bytes) {
    bool written = false;
    {
        file::Appender file(path.c_str(), file::Sharing::readOnly, file::Missing::create);
        if (!file)
            return false;
        written = file.empty() && file.append(bytes);
    }
    if (!written)
        directory::removeFile(path);
    return written;
}

} // namespace

int32_t save(Port& port) {
    std::string directory = directoryOf(port);
    if (directory.empty())
        return -2;
    Paths earlier = directory::files(directory, prefixOf(port));
    cleanUp(port, earlier);
    // By the list from before the clean-up: a number comes back one save later than its file went.
    int32_t slot = freeSlot(earlier);
    if (slot == 0)
        return -4;
    std::optional<Captured> captured = copyOf(port);
    if (!captured)
        return -2;
    if (!writeFile(directory + nameOf(port, slot), captured->bytes))
        return -3;
    process::flushStreams();
    forget(port, *captured);
    return 1;
}

} // namespace brisolt::capture
