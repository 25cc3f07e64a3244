// Talking to a modem in its command state: commands, and the lines it says.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "descriptor.h"
#include "profile.h"
#include "result_codes.h"
#include "serial_line.h"

namespace brisolt::service {

class Dialogue {
public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit Dialogue(const Wake& wake) : wake_(wake) {}
    SerialLine& line() { return line_; }

    /// Takes the line, and has the modem answer and do what the profile asks for first. 0, or why not. A call
    /// of the wake ends it.
    int32_t open(const ModemSettings& settings);

    enum class Heard {
        line,
        silence, ///< until the time was over
        called,  ///< by the wake
        room,    ///< at the descriptor that was given
        gone     ///< the device has been taken away
    };
    /// The next line that is not empty. Not a byte is taken behind its end: what follows may be data.
    Heard listen(std::string& text, std::optional<Clock::time_point> until, int forRoom = -1);
    /// False: the line did not take it all.
    bool say(std::string_view bytes);

    /// Ends a call, whatever it takes: the waits of this take a bounded time and heed no call.
    void hangUp(HangUp how);
    /// Ends an attempt to get a connection.
    void abandon(HangUp how);

private:
    bool greet();
    bool setUp(const ModemSettings& settings, const std::string& text);
    std::optional<Result> command(const std::string& text, Milliseconds patience);
    std::optional<Result> awaitResult(Milliseconds patience);
    bool heardTheEnd(Milliseconds patience);
    bool dropDtr();
    bool escape(Milliseconds patience);
    void complainOf(const ModemSettings& settings, const std::string& what) const;
    Heard pause(std::optional<Clock::time_point> until, int forRoom);

    const Wake& wake_;
    SerialLine line_;
    std::string begun_;   ///< of a line
    bool deaf_ = false;   ///< to the wake
    bool called_ = false; ///< by it
};

} // namespace brisolt::service
