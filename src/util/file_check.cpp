#include "util/file_check.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>

#include "platform/file.h"
#include "platform/memory.h"
#include "util/checks.h"

namespace brisolt::checks {
namespace {

constexpr int32_t blockSize = 32000;

struct Release {
    void operator()(uint8_t* block) const noexcept { memory::releaseSmall(block); }
};
using Block = std::unique_ptr<uint8_t, Release>;

/// Fewer bytes than a block only at the file's end, below 0 when a read fails.
int32_t readBlock(file::Reader& file, uint8_t* block) noexcept {
    int32_t filled = 0;
    while (filled < blockSize) {
        int32_t got = file.read(block + filled, blockSize - filled);
        if (got < 0)
            return got;
        if (got == 0)
            break;
        filled += got;
    }
    return filled;
}

} // namespace

int32_t checkFile(const char* name, uint32_t& check, void (*betweenBlocks)()) {
    Block block(static_cast<uint8_t*>(memory::allocateSmall(blockSize)));
    if (!block)
        return -2;
    file::Reader file(name, file::Sharing::readOnly);
    if (!file)
        return -1;
    SignedCheck32 sum;
    int64_t total = 0;
    for (int32_t count = blockSize; count == blockSize;) {
        betweenBlocks();
        count = readBlock(file, block.get());
        if (count < 0)
            return -4;
        sum.add({block.get(), static_cast<std::size_t>(count)});
        total += count;
    }
    check = sum.value();
    return static_cast<int32_t>(std::min<int64_t>(total, std::numeric_limits<int32_t>::max()));
}

} // namespace brisolt::checks
