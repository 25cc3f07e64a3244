// One end of a null-modem cable: how its line is set, the pins it drives, the bytes that have arrived and
// those that wait to leave. It knows neither time nor threads: the cable has both, and its lock.
//
// Its queues are made when it is and when a larger one is asked for, so that bytes travel without an
// allocation. What a write hands over leaves from the writer's own memory as far as the line takes it at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "brisolt_host.h"
#include "device/byte_ring.h"
#include "platform/signal.h"

namespace brisolt {

class NullModemCable;

/// What a thread may wait for at an end. The first two are those of a driver's wait.
enum NullModemCondition : uint32_t {
    nullModemReadable = COM_HOST_WAIT_READ,
    nullModemWritable = COM_HOST_WAIT_WRITE,
    nullModemTurn = 4,     ///< no complete write is under way
    nullModemDrained = 8,  ///< everything written has left
    nullModemWritten = 16, ///< the complete write under way is over
};

/// How an end begins.
struct NullModemStart {
    bool paced = false;
    bool autobaud = false;
    bool dtr = true; ///< the lines, before the ends meet
    bool rts = true;
};

struct NullModemEnd {
    /// A character on its way to the peer; `due` is the moment of the cable at which it is over.
    struct Flight {
        uint8_t value;
        bool data; ///< not an XON or XOFF of our own
        uint64_t due;
    };

    NullModemEnd(NullModemCable& itsCable, const NullModemStart& start) noexcept;
    /// Before its first use. 1, or a negative host error number when the host has no memory or descriptor.
    int32_t setUp() noexcept;

    // Settings
    /// 1, or a negative host error number when no line can be framed like that; nothing has changed then.
    int32_t setState(const ComHostLineState& wanted) noexcept;
    /// 1, or a negative host error number without the memory; nothing has changed then.
    int32_t setQueues(uint32_t inSize, uint32_t outSize) noexcept;
    /// How characters are framed: as set, or for an end that adapts itself, as its peer has set it.
    const ComHostLineState& framing() const noexcept;
    uint64_t characterNanoseconds() const noexcept;
    /// Milliseconds that a complete write of `count` bytes may take; all ones: no limit.
    uint32_t writeMilliseconds(uint64_t count) const noexcept;

    // Lines
    bool dtrPin() const noexcept;
    bool rtsPin() const noexcept;
    uint32_t modemLines() const noexcept;
    /// Both ends are open now. What one end says only once (XOFF, a break) is said to the new peer.
    void meet(NullModemEnd& newPeer) noexcept;
    /// The peer has closed.
    void part() noexcept;
    void setBreak(bool on) noexcept;
    /// As if an XON had arrived.
    void resume() noexcept { heldByXoff_ = false; }

    // Bytes
    /// The next character that may leave now; it is taken out of its queue.
    std::optional<Flight> nextCharacter() noexcept;
    /// A character of the peer, whole, reaches us.
    void arrive(uint8_t value) noexcept;
    /// Sends as many characters at once as can travel without anything happening but that they arrive. For a
    /// line on which they take no time.
    void sendRun() noexcept;
    int32_t read(std::span<uint8_t> to) noexcept;
    void purge(uint32_t what) noexcept;
    size_t room() const noexcept;
    size_t waitingToLeave() const noexcept {
        return output.size() + handed.size() + (flight && flight->data ? 1 : 0);
    }
    /// Ends the complete write under way: what is left of it is taken back out.
    void takeBack() noexcept;

    bool cancelledSince(uint32_t earlierCancels) const noexcept {
        return cancelled || cancels != earlierCancels;
    }
    /// Those of `wanted` (NullModemCondition) that hold.
    uint32_t holding(uint32_t wanted) const noexcept;
    void showReadable() noexcept;
    /// An error of COM_HOST_ERROR_... has arrived.
    void note(uint32_t error) noexcept;
    void countLines() noexcept;

    NullModemCable& cable;
    NullModemEnd* peer = nullptr;
    const bool paced;
    const bool autobaud;

    ComHostLineState state{};
    ComHostTimeouts timeouts{};
    bool dtr; ///< as the program wants them; a handshake can lower the pin nevertheless
    bool rts;
    bool ring = false;
    bool breakOn = false;
    bool cancelled = false;
    uint32_t cancels = 0; ///< how often it was cancelled: a wait must end even if that is over again
    uint32_t errors = 0;  ///< COM_HOST_ERROR_..., since they were last read

    ComHostCounters counted{};
    uint32_t shownLines = 0;             ///< as they were counted last
    bool moved = false;                  ///< a counter has, and whoever watches is yet to be told
    void (*tellChange)(void*) = nullptr; ///< null: nobody watches
    void* tellArgument = nullptr;
    uint32_t telling = 0; ///< threads that tell, without the lock

    ByteRing input;
    ByteRing output;
    std::span<const uint8_t> handed;      ///< what a write has not got rid of yet, behind the output
    bool completing = false;              ///< a complete write is under way: the bytes handed are its own
    size_t takenBack = 0;                 ///< bytes of it that shall not leave any more
    std::optional<uint8_t> flowCharacter; ///< an XON or XOFF of ours, leaves before the output
    std::optional<Flight> flight;

    Signal readable; ///< set exactly while the input holds bytes; its descriptor is the device's handle
    Signal bell;     ///< for the one thread that waits for something else beside this end
    bool bellTaken = false;

private:
    bool has(uint32_t flag) const noexcept { return (state.flags & flag) != 0; }
    bool heldByLines() const noexcept;
    bool swallowed(uint8_t value) noexcept;
    bool takesPlainBytes() const noexcept;
    size_t roomBeforeChange() const noexcept;
    size_t upperLimit() const noexcept;
    std::span<const uint8_t> nextBytes() const noexcept;
    void haveLeft(size_t count) noexcept;
    void inputChanged() noexcept;

    size_t inLimit_;
    size_t outLimit_;
    bool inputHigh_ = false; ///< the input passed its upper limit and is not below its lower one yet
    bool saidXoff_ = false;
    bool heldByXoff_ = false;
    bool shownReadable_ = false;
};

} // namespace brisolt
