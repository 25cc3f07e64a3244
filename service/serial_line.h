// The serial line to a modem: held for us alone, carrying bytes as they are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <asm/termbits.h>

#include "descriptor.h"
#include "profile.h"

namespace brisolt::service {

class SerialLine {
public:
    SerialLine() = default;
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;
    ~SerialLine() { close(); }

    /// 0, or why the line cannot be had; a person is told unless another program merely holds it.
    int32_t open(const ModemSettings& settings);
    void close() noexcept;

    int descriptor() const noexcept { return descriptor_.get(); }
    /// Takes at most `count` bytes that are there. Bytes, 0 none, -1 the device is gone.
    ssize_t read(char* bytes, std::size_t count) const noexcept;
    /// Bytes taken now, 0 no room, -1 the device is gone.
    ssize_t write(std::string_view bytes) const noexcept;
    void discardInput() const noexcept;

    /// Whether the line shows a carrier. A line without modem signals never does.
    bool carrier() const noexcept;
    /// False: there is no such signal.
    bool setDtr(bool on) const noexcept;

private:
    int32_t openFile(const ModemSettings& settings);
    int32_t openThroughLibrary(const ModemSettings& settings);
    int32_t claim(const ModemSettings& settings);
    bool configure(const ModemSettings& settings);

    Descriptor descriptor_;
    bool ofLibrary_ = false;         ///< the descriptor is the library's to close
    std::optional<termios2> before_; ///< to be restored; none: the line is not ours
};

} // namespace brisolt::service
