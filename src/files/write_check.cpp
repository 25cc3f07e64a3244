#include "files/write_check.h"

#include <algorithm>
#include <array>

#include "diag/debug_logs.h"
#include "platform/mutex.h"
#include "util/file_blocks.h"

namespace brisolt::writeCheck {

namespace {

using logs::Log;

constexpr std::size_t pieceSize = 2048;

file::File openFile(const char* name) noexcept {
    return {name, {file::Access::read, file::Sharing::all}};
}

/// How many bytes differ; each has its line.
int32_t compare(Port& port, int64_t position, std::span<const uint8_t> expected,
                std::span<const uint8_t> held) {
    int32_t wrong = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (expected[i] == held[i])
            continue;
        ++wrong;
        logs::entry(port, Log::verify, "Write Mismatch:  Char No: %lld  Should be: %x  File Contains: %x",
                    static_cast<long long>(position) + static_cast<long long>(i),
                    static_cast<unsigned>(expected[i]), static_cast<unsigned>(held[i]));
    }
    return wrong;
}

} // namespace

int32_t startFile(Port& port, const char* file, const char* log) {
    logs::switchTo(port, Log::verify, log, "Write File Verification");
    return openFile(file) ? 1 : -1;
}

int32_t verifyFile(Port& port, const char* name, int32_t offset, std::span<const uint8_t> expected) {
    file::File file = openFile(name);
    if (!file) {
        logs::entry(port, Log::verify, "Failed to open file: %s", name);
        return -1;
    }
    bool positioned = offset >= 0 && file.seek(offset) == offset;
    if (!positioned && expected.empty())
        return -1;
    std::array<uint8_t, pieceSize> piece{};
    int32_t wrong = 0;
    for (std::size_t done = 0; done < expected.size();) {
        if (!port.isOpen())
            return -1;
        std::size_t wanted = std::min(pieceSize, expected.size() - done);
        int32_t got = positioned ? std::max(readFull(file, {piece.data(), wanted}), 0) : 0;
        if (static_cast<std::size_t>(got) < wanted) {
            logs::entry(port, Log::verify, "Failed to read sufficient bytes  wanted: %d  got: %d",
                        static_cast<int32_t>(expected.size()), static_cast<int32_t>(done) + got);
            return -1;
        }
        wrong += compare(port, int64_t{offset} + static_cast<int64_t>(done), expected.subspan(done, wanted),
                         {piece.data(), wanted});
        done += wanted;
    }
    if (wrong > 0)
        return -2;
    logs::entry(port, Log::verify, "Block Write Verified: %d", offset);
    return 1;
}

void startStream(Port& port) noexcept {
    MutexLock guard(port.filesMutex);
    PortWorkArea& area = *port.workArea;
    area.verifyExpect1 = area.verifyExpect2 = area.verifyReserved = 0;
    area.verifyState = area.verifyCount = 0;
}

int32_t verifyStream(Port& port, std::span<const uint8_t> bytes) noexcept {
    MutexLock guard(port.filesMutex);
    PortWorkArea& area = *port.workArea;
    for (std::size_t i = 0; i < bytes.size() && area.verifyState < 2; ++i) {
        int32_t wanted = area.verifyState == 0 ? area.verifyExpect1 : area.verifyExpect2;
        if (static_cast<int8_t>(bytes[i]) != wanted)
            return -area.verifyCount;
        ++area.verifyCount;
        ++area.verifyState;
    }
    return 1;
}

} // namespace brisolt::writeCheck
