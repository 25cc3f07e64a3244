#include "util/file_check.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>

#include "platform/file.h"
#include "platform/memory.h"
#include "util/checks.h"
#include "util/file_blocks.h"

namespace brisolt::checks {
namespace {

constexpr int32_t roomSize = 32000;

struct Release {
    void operator()(uint8_t* block) const noexcept { memory::releaseSmall(block); }
};
using Block = std::unique_ptr<uint8_t, Release>;

} // namespace

int32_t checkFile(const char* name, uint32_t& check, void (*betweenBlocks)()) {
    Block block(static_cast<uint8_t*>(memory::allocateSmall(roomSize)));
    if (!block)
        return -2;
    if (!file::exists(name, file::Access::read, file::Sharing::all)) // a device would never end
        return -1;
    file::File file(name, {file::Access::read, file::Sharing::readOnly});
    if (!file)
        return -1;
    SignedCheck32 sum;
    int64_t total = 0;
    for (int32_t count = roomSize; count == roomSize;) {
        betweenBlocks();
        count = readFull(file, {block.get(), roomSize});
        if (count < 0)
            return -4;
        sum.add({block.get(), static_cast<std::size_t>(count)});
        total += count;
    }
    check = sum.value();
    return static_cast<int32_t>(std::min<int64_t>(total, std::numeric_limits<int32_t>::max()));
}

} // namespace brisolt::checks
