#include "diag/array_dump.h"

#include "diag/debug_logs.h"
#include "port/blocks.h"
#include "port/port_table.h"

namespace brisolt {
namespace {

constexpr int32_t shownPort = 90; ///< in the stamps of the entries

/// A port that is in no table: it has the record that a log needs, and whoever uses its number is left alone.
HeldPort portForLog() noexcept {
    Port* port = table::make(shownPort);
    if (port != nullptr && blocks::allocateRecords(*port) != 0) {
        table::letGo(*port);
        port = nullptr;
    }
    return HeldPort(port);
}

} // namespace

int32_t dumpArray(std::span<const uint8_t> elements, const char* fileName) {
    HeldPort port = portForLog();
    if (!port || logs::switchTo(*port, logs::Log::debug, fileName, "Array Debug") == -1)
        return -1;
    for (std::size_t i = 0; i < elements.size(); ++i)
        logs::entry(*port, logs::Log::debug, "Element: %d HexValue: %x", static_cast<int32_t>(i),
                    uint32_t{elements[i]});
    return 1;
}

} // namespace brisolt
