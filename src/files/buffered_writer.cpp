#include "files/buffered_writer.h"

#include <algorithm>
#include <cstring>

#include "platform/clock.h"
#include "platform/file.h"
#include "platform/thread.h"
#include "port/log_file.h"
#include "port/waits.h"

namespace brisolt::bufferedWriter {

namespace {

using file::Access;
using file::File;
using file::Opening;
using file::Sharing;
using logs::Log;

constexpr int32_t threshold = 61501; ///< bytes held from which they are written out
constexpr int32_t mostAttempts = 10;
constexpr int32_t escapeCharacter = 27;

/// The writer for the length of a scope, for one call at a time. None for a call that a message of the
/// thread's own leads to while it writes, and none when the port closes meanwhile.
class Turn {
public:
    explicit Turn(Port& port) : port_(port) {
        const uint32_t me = thread::currentId();
        while (port.fileWriter != me && !port.ending()) {
            uint32_t seen = port.events.count();
            uint32_t nobody = 0;
            taken_ = port.fileWriter.compare_exchange_strong(nobody, me);
            if (taken_)
                return;
            sleepOnPort(port, seen, {}, clock::Deadline::never());
        }
    }
    ~Turn() {
        if (!taken_)
            return;
        port_.fileWriter = 0;
        port_.events.wakeAll();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    explicit operator bool() const noexcept { return taken_; }

private:
    Port& port_;
    bool taken_ = false;
};

/// The bytes that wait.
struct Held {
    explicit Held(PortWorkArea& area) noexcept : count(area.bufWriteCount), bytes(area.bufWriteData) {}
    int32_t room() const noexcept { return bufWriteSize - count; }
    /// As many of the bytes as fit; what is left of them.
    std::span<const uint8_t> take(std::span<const uint8_t> more) noexcept {
        std::size_t taken = std::min(more.size(), static_cast<std::size_t>(room()));
        if (taken > 0)
            std::memcpy(bytes + count, more.data(), taken);
        count += static_cast<int32_t>(taken);
        return more.subspan(taken);
    }
    int32_t& count;
    uint8_t* bytes;
};

void tellNotOpen(Port& port, const char* name) {
    logs::entry(port, Log::protocol, "ERROR: Unable to open file: %s", name);
}

/// One attempt to write what is held and to have it on the disk, if the file is where it is to be.
bool attempt(Port& port, File& file, bool placed, int32_t failedBefore) {
    Held held(*port.workArea);
    int32_t written = placed ? std::max(file.write(held.bytes, held.count), 0) : 0;
    bool onDisk = written == held.count && file.flush();
    int32_t reason = file::lastFailure();
    pause(port, 1);
    checkEscape(port, escapeCharacter); // lets the caller's messages through
    if (written < held.count)
        logs::entry(port, Log::protocol, "Write Failure: Written: %d  Wanted to write: %d Attempts: %d",
                    written, held.count, failedBefore);
    else if (!onDisk)
        logs::entry(port, Log::protocol, "Write Failure: return code 0 - Error: %d", reason);
    return onDisk;
}

/// Writes what is held. Each further attempt starts where the file ended before, so that it covers what an
/// earlier one wrote in part. What cannot be written at last is dropped.
bool writeHeld(Port& port, File& file) {
    int64_t end = -1;
    for (int32_t failed = 0; failed < mostAttempts; ++failed) {
        if (failed > 0)
            logs::entry(port, Log::protocol, "Attempting to write again");
        bool placed = end < 0 ? (end = file.seekEnd()) >= 0 : file.seek(end) == end;
        if (attempt(port, file, placed, failed)) {
            port.workArea->bufWriteCount = 0;
            return true;
        }
    }
    logs::entry(port, Log::protocol, " Threshold on write errors exceeded");
    port.workArea->bufWriteCount = 0;
    return false;
}

/// Writes what is held, and of the further bytes as many full blocks as there are; the rest is held. When
/// the file cannot be opened, all that was held stays so, and nothing of the further bytes is taken.
bool writeOut(Port& port, std::span<const uint8_t> further) {
    Held held(*port.workArea);
    const char* name = port.workArea->bufWriteFileName;
    File file(name, {Access::write, Sharing::all});
    if (!file) {
        tellNotOpen(port, name);
        return false;
    }
    do {
        if (held.count > 0 && !writeHeld(port, file))
            return false;
        further = held.take(further);
    } while (held.count >= threshold);
    return true;
}

bool prepare(const char* name, bool fresh) {
    bool there = file::exists(name, Access::readWrite, Sharing::none);
    if (there && fresh)
        there = !file::remove(name); // one that stays is in the way of the new one
    bool useExisting = there && !fresh;
    return bool(
        File(name, {Access::readWrite, Sharing::all, useExisting ? Opening::existing : Opening::createNew}));
}

void forgetFile(PortWorkArea& area) noexcept {
    std::memset(area.bufWriteFileName, 0, sizeof area.bufWriteFileName);
}

} // namespace

bool start(Port& port, const char* name, bool fresh) {
    Turn turn(port);
    if (!turn)
        return false;
    PortWorkArea& area = *port.workArea;
    forgetFile(area);
    std::memcpy(area.bufWriteFileName, name, std::strlen(name));
    area.bufWriteCount = 0;
    if (prepare(name, fresh))
        return true;
    tellNotOpen(port, name);
    return false;
}

bool add(Port& port, std::span<const uint8_t> bytes) {
    Turn turn(port);
    PortWorkArea& area = *port.workArea;
    if (!turn || area.bufWriteFileName[0] == '\0')
        return false;
    Held held(area);
    if (bytes.size() <= static_cast<std::size_t>(held.room()))
        bytes = held.take(bytes);
    return (bytes.empty() && held.count < threshold) || writeOut(port, bytes);
}

bool finish(Port& port) {
    Turn turn(port);
    PortWorkArea& area = *port.workArea;
    if (!turn || area.bufWriteFileName[0] == '\0')
        return false;
    bool done = area.bufWriteCount == 0 || writeOut(port, {});
    if (done)
        std::memset(area.bufWriteData, 0, sizeof area.bufWriteData);
    area.bufWriteCount = 0;
    forgetFile(area);
    return done;
}

} // namespace brisolt::bufferedWriter
