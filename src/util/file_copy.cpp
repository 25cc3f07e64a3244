#include "util/file_copy.h"

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "platform/error_text.h"
#include "util/file_blocks.h"

namespace brisolt::copying {

namespace {

using file::Access;
using file::File;
using file::Opening;
using file::Sharing;

constexpr int32_t draftTries = 20;

/// Nobody has it open, and it may be written.
bool free(const char* path) noexcept {
    return file::exists(path, Access::readWrite, Sharing::none);
}

File openSource(const char* path) {
    File source;
    if (free(path))
        source = File(path, {Access::read, Sharing::readOnly});
    if (!source)
        setErrorText("cannot copy " + std::string(path) + ": it is missing, read-only or in use");
    return source;
}

File createFile(const char* path, uint32_t permissions) noexcept {
    return {path,
            {.access = Access::write,
             .sharing = Sharing::readOnly,
             .opening = Opening::createNew,
             .permissions = permissions}};
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
        setErrorText("cannot copy " + std::string(source) + ": it has become shorter");
        return readFailed;
    }
    if (to.flush())
        return done;
    file::tellFailure("write to", destination);
    return writeFailed;
}

/// A new file beside another, under a name that nobody looks for.
File createDraft(const std::string& place, uint32_t permissions, std::string& draft) {
    std::random_device random;
    File file;
    for (int32_t tries = 0; !file && tries < draftTries; ++tries) {
        char name[32];
        std::snprintf(name, sizeof name, ".brisolt-%08x", random());
        draft = std::filesystem::path(place).replace_filename(name).string();
        file = createFile(draft.c_str(), permissions);
        if (!file && !file::taken(draft.c_str()))
            break; // not the name is in the way
    }
    return file;
}

/// The draft takes the place of the destination in one step: there is always one of them.
int32_t publish(const std::string& draft, const std::string& place, bool replaces) {
    if (replaces)
        return file::replace(place.c_str(), draft.c_str()) ? done : noSource;
    if (file::rename(draft.c_str(), place.c_str()))
        return done;
    file::tellFailure("write to", place.c_str());
    return noDestination;
}

} // namespace

int32_t append(const char* destination, const char* source) {
    File from = openSource(source);
    if (!from)
        return noSource;
    bool there = free(destination);
    File to = there ? File(destination, {Access::write, Sharing::readOnly})
                    : createFile(destination, file::permissions(source));
    int64_t before = to.seekEnd();
    if (before < 0)
        return noDestination;
    int32_t result = transfer(from, source, to, destination);
    if (result == done)
        return done;
    to.truncate(before);
    to.close();
    if (!there)
        file::discard(destination);
    return result;
}

// The destination is given up only when the copy is complete and on the disk: a full disk costs nothing. A
// new file is no more open to others than its source; one in another's place belongs to whom that did.
int32_t copy(const char* destination, const char* source) {
    File from = openSource(source);
    if (!from)
        return noSource;
    std::string place = file::realPlace(destination); // a link to it is to stay one
    bool replaces = file::taken(place.c_str());
    if (replaces && !free(place.c_str())) {
        setErrorText("cannot replace " + place + ": it is read-only or in use");
        return noSource;
    }
    std::string draft;
    File to = createDraft(place, replaces ? 0600 : file::permissions(source), draft);
    if (!to)
        return replaces ? noSource : noDestination;
    int32_t result = transfer(from, source, to, destination);
    if (result == done && replaces && !to.takeOver(place.c_str()))
        result = writeFailed;
    to.close();
    if (result == done)
        result = publish(draft, place, replaces);
    if (result != done)
        file::discard(draft.c_str());
    return result;
}

int32_t move(const char* destination, const char* source) {
    int32_t result = copy(destination, source);
    if (result != done || file::remove(source))
        return result;
    file::tellFailure("delete", source);
    return sourceStays;
}

} // namespace brisolt::copying
