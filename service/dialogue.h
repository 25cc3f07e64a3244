// Talking to a modem in its command state: commands, and the lines it says.
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "profile.h"
#include "result_codes.h"
#include "serial_line.h"
#include "waiting.h"

namespace brisolt::service {

class Dialogue {
public:
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
    /// The next line that is not empty; the text lasts until more is listened to. Not a byte is taken behind
    /// its end: what follows may be data.
    Heard listen(std::string_view& text, Until until, int forRoom = -1);
    /// False: the line did not take it all.
    bool say(std::string_view bytes);

    /// Ends a call, whatever it takes: the waits of this take a bounded time and heed no call.
    void hangUp(HangUp how);
    /// Ends an attempt to get a connection.
    void abandon(HangUp how);

private:
    bool greet();
    bool setUp(const ModemSettings& settings, const std::string& text);
    std::optional<Result> command(std::string_view text, Milliseconds patience);
    std::optional<Result> awaitResult(Milliseconds patience);
    bool heardOk(Milliseconds patience);
    bool dropDtr();
    bool escape(Milliseconds patience);
    void complainOf(const ModemSettings& settings, const std::string& what) const;
    Heard pause(Until until, int forRoom);

    const Wake& wake_;
    SerialLine line_;
    std::array<char, 200> begun_{}; ///< of a line, which may be the last one heard
    std::size_t begunSize_ = 0;
    bool deaf_ = false;   ///< to the wake
    bool called_ = false; ///< by it
};

} // namespace brisolt::service
