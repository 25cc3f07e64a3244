// What the files of the network driver share: an open line and what is remembered about it.
//
// Plain bytes go between the caller's buffer and the socket, without a lock. A line with telnet or TLS holds bytes
// back at times (a record that was longer than the reader's room; what came while an answer was waited for), so its
// descriptor is a gate that shows those, too, and one lock guards all that moves on it; nobody waits under it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "brisolt_host.h"
#include "device/byte_ring.h"
#include "device/network/com_port.h"
#include "device/network/network_path.h"
#include "device/network/peer_stream.h"
#include "device/network/telnet.h"
#include "platform/clock.h"
#include "platform/mutex.h"
#include "platform/signal.h"
#include "platform/stream_socket.h"

namespace brisolt::network {

struct NetworkDevice {
    explicit NetworkDevice(const Kind& itsKind) noexcept : kind(itsKind) {}

    const Kind& kind;
    Path path;
    PeerStream stream;
    streams::Gate gate;

    std::atomic<bool> gone{false};
    std::atomic<bool> over{false};      ///< the far end says no more; what it has said is still to be read
    std::atomic<bool> goneTold{false};  ///< to one of those who wait
    std::atomic<bool> cancelled{false}; ///< nobody waits for room or for an answer
    std::atomic<bool> suspended{false}; ///< the far end holds us off
    std::atomic<uint32_t> errors{0};    ///< COM_HOST_ERROR_..., since they were last told

    Mutex settingsMutex;
    ComHostLineState line GUARDED_BY(settingsMutex){};
    ComHostTimeouts timeouts GUARDED_BY(settingsMutex){};

    Signal interruption; ///< ends the sleeps of the writes that are under way
    Signal resumed;      ///< is set when the far end holds us off no more; whoever is held off sleeps on it
    Mutex writersMutex;
    uint32_t interruptions GUARDED_BY(writersMutex) = 0;
    uint32_t writers GUARDED_BY(writersMutex) = 0;
    bool interrupted GUARDED_BY(writersMutex) = false; ///< the signal is set

    Mutex requestMutex; ///< one asks at a time, and holds it while it waits
    /// What the line was when a request was not answered.
    std::optional<ComPort::Values> wayBack GUARDED_BY(requestMutex);
    Signal news; ///< for whoever asks: something has come for him

    Mutex mutex;                         ///< all that moves on a line that is more than plain bytes
    ByteRing heldBack GUARDED_BY(mutex); ///< taken off the socket before a reader asked for it
    ByteRing outgoing GUARDED_BY(mutex); ///< commands, and halves of them, that leave before anything else
    bool heldBackShown GUARDED_BY(mutex) = false;
    bool roomWatched GUARDED_BY(mutex) = false;
    Telnet telnet GUARDED_BY(mutex);
    ComPort comPort GUARDED_BY(mutex);

    Mutex watchMutex; ///< held while it is called
    void (*changed)(void*) GUARDED_BY(watchMutex) = nullptr;
    void* argument GUARDED_BY(watchMutex) = nullptr;
};

inline NetworkDevice& of(void* device) noexcept {
    return *static_cast<NetworkDevice*>(device);
}

/// Several threads may find out; the first to wait afterwards is told.
void setGone(NetworkDevice& device) noexcept;

// ---- network_io.cpp
int32_t read(void* device, void* buffer, int32_t count) noexcept;
/// Bytes taken; `error` is a positive error number when the line is lost.
int32_t writeNow(NetworkDevice& device, std::span<const uint8_t> bytes, int32_t& error) noexcept;
/// Takes off the socket what is there, as far as there is room for it.
void takeIn(NetworkDevice& device) noexcept;
/// Sends commands that stand in `outgoing`.
bool sendOutgoing(NetworkDevice& device) noexcept WITH_LOCK(device.mutex);
/// Sends on what was taken and has not left.
void sendOn(NetworkDevice& device) noexcept;
int32_t unsent(void* device) noexcept;
/// Drops what has come.
void dropInput(NetworkDevice& device) noexcept;
/// Bytes that a reader would find.
uint32_t bytesHeld(NetworkDevice& device) noexcept;
/// The far end holds us off, or no more.
void setHeldOff(NetworkDevice& device, bool on) noexcept WITH_LOCK(device.mutex);

// ---- network_wait.cpp
/// One sleep for what `events` say, COM_HOST_WAIT_...; what streams::wait has seen. Held off, it ends with that.
uint32_t sleepFor(NetworkDevice& device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept;
int32_t wait(void* device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept;
int32_t descriptor(void* device) noexcept;

// ---- network_write.cpp
int32_t write(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept;
int32_t flush(void* device) noexcept;
void interruptWrites(NetworkDevice& device) noexcept;

// ---- remote_port.cpp
/// Agrees with the far end on the com-port option. 1, or a negative error number: then `error` says why.
int32_t beginRemotePort(NetworkDevice& device, std::string& error);
int32_t setRemoteLine(NetworkDevice& device, const ComHostLineState& state) noexcept;
/// Without waiting for an answer. 1, or a negative error number.
int32_t tellRemote(NetworkDevice& device, uint8_t command, std::span<const uint8_t> value) noexcept;

} // namespace brisolt::network
