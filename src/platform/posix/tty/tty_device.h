// What the files of the tty driver share: an open tty and what is remembered about it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <asm/termbits.h>
#include <linux/serial.h>
#include <poll.h>

#include "brisolt_host.h"
#include "platform/clock.h"
#include "platform/device_options.h"
#include "platform/mutex.h"
#include "platform/posix/tty/line_watch.h"
#include "platform/posix/tty/uucp_lock.h"
#include "platform/signal.h"

namespace brisolt::tty {

/// Undoes the kernel's marking of bytes that arrived with an error: 0xFF 0xFF stands for 0xFF, and
/// 0xFF 0x00 c for a broken byte c, which errorChar replaces if there is one. A mark may be split over any
/// number of reads.
class MarkFilter {
public:
    /// Works in place; how many bytes are left.
    int32_t undo(uint8_t* bytes, int32_t count, std::optional<uint8_t> errorChar) noexcept;

private:
    enum class Seen { nothing, mark, brokenMark };
    Seen seen_ = Seen::nothing;
};

/// What an option has changed beside the settings, to be put back.
struct Undo {
    std::optional<int32_t> serialFlags;
    std::string latencyTimer; ///< its former value; empty: not changed
    std::optional<serial_rs485> rs485;
};

struct TtyDevice {
    TtyDevice() = default;
    TtyDevice(const TtyDevice&) = delete;
    TtyDevice& operator=(const TtyDevice&) = delete;
    ~TtyDevice(); ///< of an open that has failed: closes the descriptor

    int32_t descriptor = -1;
    std::string path;
    DeviceOptions options;
    UucpLock uucpLock;
    Undo undo;
    bool adopted = false;
    bool isCopy = false;      ///< adopted: others may change how its descriptor waits
    bool wasBlocking = false; ///< adopted: what its descriptor was
    bool isPty = false;       ///< has neither a line nor an output queue of its own
    bool isMaster = false;    ///< its settings are those of the far end
    termios2 before{};        ///< the settings to restore: opened all, adopted those that nobody asked for

    Signal interruption; ///< ends the sleeps of the writes that are under way
    std::atomic<uint32_t> interruptions{0};
    std::atomic<bool> cancelled{false}; ///< no write waits
    std::atomic<bool> hungUp{false};
    std::atomic<uint32_t> gone{0}, back{0}; ///< how often it hung up and came back
    std::atomic<int64_t> lineBusyUntil{0};  ///< where the transmitter does not tell: nanoseconds of the clock
    std::atomic<bool> hasModemLines{true};
    std::atomic<bool> countsErrors{true};
    std::atomic<bool> tellsTransmitter{true};

    // The modes that the driver itself has to do, for the calls that pass them by without the lock.
    std::atomic<bool> dsrHoldsOutput{false};
    std::atomic<bool> dtrHoldsInput{false};
    std::atomic<bool> filtersInput{false};
    std::atomic<uint32_t> bitRate{9600};

    serial_icounter_struct opened{}; ///< as it counted at the open

    Mutex lock; ///< guards what follows
    ComHostLineState line GUARDED_BY(lock){};
    bool framingKept GUARDED_BY(lock) = false; ///< a pty was given a framing, which only `line` remembers
    bool dtrLowered GUARDED_BY(lock) = false;  ///< by the handshake
    bool marked GUARDED_BY(lock) = false;      ///< the kernel marks broken bytes
    MarkFilter marks GUARDED_BY(lock);
    ComHostTimeouts timeouts GUARDED_BY(lock){};
    serial_icounter_struct counters GUARDED_BY(lock){}; ///< at the last look for errors
    serial_icounter_struct latest GUARDED_BY(lock){};   ///< of a device that has gone
    uint32_t writes GUARDED_BY(lock) = 0;               ///< under way
    bool interrupted GUARDED_BY(lock) = false;          ///< the signal is set
    uint32_t abandoned GUARDED_BY(lock) = 0;            ///< bytes that purges took out of the kernel's queue

    Mutex watchMutex; ///< what follows; never taken inside `lock`
    std::unique_ptr<LineWatch> lineWatch GUARDED_BY(watchMutex);
};

inline TtyDevice& of(void* device) noexcept {
    return *static_cast<TtyDevice*>(device);
}

/// True when an error number says that the device has no such function at all.
bool lacksFunction(int32_t error) noexcept;
/// True when an error number says that the device is gone.
bool isGone(int32_t error) noexcept;

/// The other end has gone, or is there again.
inline void setHungUp(TtyDevice& tty, bool now) noexcept {
    if (tty.hungUp.load(std::memory_order_relaxed) != now && tty.hungUp.exchange(now) != now)
        (now ? tty.gone : tty.back).fetch_add(1);
}

// ---- tty_options.cpp
/// What an open path asks for beside its settings. 0, or an error number; the error text then says what.
int32_t applyOptions(TtyDevice& tty) noexcept;
/// What a driver grants otherwise than it was asked for: "rs485-before=100"; empty: nothing.
std::string grantedOtherwise(const Rs485Options& wanted, const serial_rs485& granted);
/// Puts back what applyOptions has changed.
void undoOptions(TtyDevice& tty) noexcept;

// ---- tty_counters.cpp
int32_t counters(void* device, ComHostCounters* counters) noexcept;
uint32_t watch(void* device, uint32_t events, void (*changed)(void*), void* argument) noexcept;
/// The settings have changed: a wait for a change of the lines begins anew.
void watchAgain(TtyDevice& tty) noexcept;
int32_t state(void* device) noexcept;

// ---- tty_open_error.cpp
/// Why a path could not be opened, for people: who holds it, which group may open it.
std::string openErrorText(const std::string& path, int32_t error);
/// That a living process has its lock file.
/// Or UucpLock::unnamed: somebody is about to.
std::string lockedText(const std::string& path, int32_t process);

// ---- tty_line_state.cpp
/// Whether errorChar is to stand for broken bytes.
bool replacesErrors(const ComHostLineState& state) noexcept;
/// Learns the state of a device just opened or adopted; raw: puts it into the state for plain bytes.
void learnLineState(TtyDevice& tty, bool raw) noexcept;
/// Gives an adopted device back with broken bytes as unmarked or marked as they were.
void restoreMarks(const TtyDevice& tty) noexcept;
int32_t getLineState(void* device, ComHostLineState* state) noexcept;
int32_t setLineState(void* device, const ComHostLineState* state) noexcept;

// ---- tty_status.cpp
int32_t properties(void* device, ComHostProperties* properties) noexcept;
int32_t line(void* device, uint32_t function) noexcept;
int32_t modemStatus(void* device, uint32_t* lines) noexcept;
int32_t status(void* device, uint32_t wanted, ComHostStatus* status) noexcept;
/// Empties the kernel's output queue. How many bytes that took: not all of them where a driver does not give
/// up what it has, as those of USB devices do not; they are sure to go. Negative: error number.
int32_t discardOutput(TtyDevice& tty) noexcept;
int32_t purge(void* device, uint32_t what) noexcept;
/// The handshake with DTR, which the kernel does not know: lowers DTR while the input queue is full. Whether
/// it is lowered.
bool holdPeerOff(TtyDevice& tty) noexcept;
/// True while DSR is low in the mode in which that holds output off.
bool heldByDsr(TtyDevice& tty) noexcept;

// ---- tty_write.cpp
/// Ends the waits of all writes and flushes that are under way.
void interruptWrites(TtyDevice& tty) noexcept WITH_LOCK(tty.lock);
/// The kernel's output queue; 0 too where a device cannot tell. Negative: error number.
int32_t queuedOutput(const TtyDevice& tty) noexcept;
/// Where the transmitter does not tell: what was written and is not queued any more has been thrown away.
void forgetDiscarded(TtyDevice& tty, int32_t queued) noexcept;
int32_t getTimeouts(void* device, ComHostTimeouts* timeouts) noexcept;
int32_t setTimeouts(void* device, const ComHostTimeouts* timeouts) noexcept;
int32_t write(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept;
int32_t flush(void* device) noexcept;
int32_t unsent(void* device) noexcept;

// ---- tty_wait.cpp
/// Polls; where the host fails to, it sleeps a little instead, so that no loop around it spins. False when the
/// poll ended without an answer.
bool pollOrRest(std::span<pollfd> set, int32_t milliseconds) noexcept;
int32_t read(void* device, void* buffer, int32_t count) noexcept;
int32_t wait(void* device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept;
int32_t descriptor(void* device) noexcept;

} // namespace brisolt::tty
