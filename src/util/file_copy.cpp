#include "util/file_copy.h"

#include <string>

#include "platform/draft.h"
#include "util/file_blocks.h"

namespace brisolt::copying {

namespace {

using file::Access;
using file::File;
using file::Sharing;

/// Nobody has it open, and it may be written.
bool free(const char* path) noexcept {
    return file::exists(path, Access::readWrite, Sharing::none);
}

File openSource(const char* path) noexcept {
    File source;
    if (free(path))
        source = File(path, {Access::read, Sharing::readOnly});
    if (!source)
        file::tell("copy", path, "it is missing, read-only or in use");
    return source;
}

int32_t writeBlock(File& to, const Block& block, int32_t count, const char* path) noexcept {
    for (int32_t written = 0; written < count;) {
        int32_t now = to.write(block.data() + written, count - written);
        if (now < 1) {
            file::tellFailure("write to", path);
            return writeFailed;
        }
        written += now;
    }
    return done;
}

/// All of a file to another's end and to the disk. A source that is shorter than when it was opened has lost
/// something on the way.
int32_t transfer(File& from, const char* source, File& to, const char* destination) noexcept {
    Block block;
    int64_t expected = from.size();
    int64_t copied = 0;
    int32_t got = blockSize;
    while (got == blockSize) {
        got = readFull(from, block);
        if (got < 0) {
            file::tellFailure("read", source);
            return readFailed;
        }
        if (int32_t result = writeBlock(to, block, got, destination); result != done)
            return result;
        copied += got;
    }
    if (copied < expected) {
        file::tell("copy", source, "it has become shorter");
        return readFailed;
    }
    if (to.flush())
        return done;
    file::tellFailure("write to", destination);
    return writeFailed;
}

/// What a copy is when its place is known. It is complete and on the disk before anything is given up for it:
/// a full disk costs nothing. A new file is no more open to others than its source; one in another's place
/// belongs to whom that did.
int32_t copyTo(const std::string& place, bool replaces, File& from, const char* source) {
    const int32_t refused = replaces ? noSource : noDestination;
    file::Draft draft(place, replaces ? 0600 : from.permissions());
    if (!draft)
        return refused;
    int32_t result = transfer(from, source, draft.file(), place.c_str());
    if (result != done)
        return result;
    if (replaces && !draft.file().takeOver(place.c_str())) {
        file::tellFailure("write to", place.c_str());
        return writeFailed;
    }
    if (replaces ? draft.replace() : draft.publish())
        return done;
    file::tellFailure("write to", place.c_str());
    return refused;
}

int32_t tellInTheWay(const std::string& place, int32_t result) noexcept {
    file::tell("write to", place.c_str(), "it is read-only, no file or in use");
    return result;
}

} // namespace

int32_t append(const char* destination, const char* source) {
    File from = openSource(source);
    if (!from)
        return noSource;
    if (!free(destination)) {
        std::string place = file::realPlace(destination);
        return file::taken(place.c_str()) ? tellInTheWay(place, noDestination)
                                          : copyTo(place, false, from, source);
    }
    File to(destination, {Access::write, Sharing::readOnly});
    int64_t before = to.seekEnd();
    if (before < 0) {
        file::tellFailure("write to", destination);
        return noDestination;
    }
    int32_t result = transfer(from, source, to, destination);
    if (result != done)
        to.truncate(before);
    return result;
}

int32_t copy(const char* destination, const char* source) {
    File from = openSource(source);
    if (!from)
        return noSource;
    std::string place = file::realPlace(destination); // a link to it is to stay one
    bool replaces = file::taken(place.c_str());
    if (replaces && !free(place.c_str()))
        return tellInTheWay(place, noSource);
    return copyTo(place, replaces, from, source);
}

int32_t move(const char* destination, const char* source) {
    int32_t result = copy(destination, source);
    if (result != done || file::remove(source))
        return result;
    file::tellFailure("delete", source);
    return sourceStays;
}

} // namespace brisolt::copying
