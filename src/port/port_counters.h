// What has happened on a port since its open, counted: line changes, errors, a device that went and came back.
// Everything that tells is made of these counters: a wait compares them, a message is posted when they move, so
// nothing is missed between two looks, whoever looks.
#pragma once

#include <cstdint>

#include "brisolt_host.h"
#include "platform/mutex.h"

namespace brisolt {

struct Port;

class PortCounters {
public:
    static constexpr uint32_t everyEvent = COM_HOST_EVENT_CTS | COM_HOST_EVENT_DSR | COM_HOST_EVENT_CARRIER |
                                           COM_HOST_EVENT_BREAK | COM_HOST_EVENT_RING | COM_HOST_EVENT_ERROR |
                                           COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK;

    /// The port has a device now: from here on it counts.
    void begin(Port& port) noexcept;
    /// As they are now.
    ComHostCounters now(Port& port) noexcept;
    /// The device may have news: whoever waits and whom the port tells of events hears of them.
    void look(Port& port) noexcept;
    /// Errors (COM_HOST_ERROR_...) that a status read has seen.
    void noteErrors(Port& port, uint32_t errors) noexcept;
    /// Looks when the device has gone or come back since the last time, or does not tell what somebody asked for;
    /// else it costs next to nothing.
    void noteState(Port& port) noexcept;

    /// Somebody asks for events: the device tells of them from now on. Those of them that it can tell.
    uint32_t ask(Port& port, uint32_t events) noexcept;
    /// Somebody waits for what he has asked for, or asks for it in a moment.
    void beginWait() noexcept;
    void endWait() noexcept;
    /// Whom the port tells of what happens from now on.
    void setTarget(Port& port, uint32_t events, int32_t window, uint32_t thread) noexcept;
    /// Nobody; and the device tells nothing any more until somebody asks again.
    void endTarget(Port& port) noexcept;

    /// Those of `events` whose counters differ.
    static uint32_t differing(const ComHostCounters& a, const ComHostCounters& b, uint32_t events) noexcept;
    /// Takes over the counters of `events`.
    static void copy(ComHostCounters& to, const ComHostCounters& from, uint32_t events) noexcept;

private:
    /// `device`: what it counts, as far as `counts` says (device.h).
    ComHostCounters counted(const Port& port, const ComHostCounters& device, int32_t counts) const noexcept
        WITH_LOCK(mutex_);
    uint32_t moveOn(const ComHostCounters& latest) noexcept WITH_LOCK(mutex_);

    Mutex mutex_;                             ///< what follows
    ComHostCounters base_ GUARDED_BY(mutex_); ///< the device's, at the open
    ComHostCounters own_ GUARDED_BY(mutex_);  ///< what a device that counts nothing has told otherwise
    ComHostCounters told_ GUARDED_BY(mutex_); ///< as whoever asked was told last
    int32_t state_ GUARDED_BY(mutex_) = COM_HOST_DEVICE_THERE;
    uint32_t events_ GUARDED_BY(mutex_) = 0;
    int32_t window_ GUARDED_BY(mutex_) = 0;
    uint32_t thread_ GUARDED_BY(mutex_) = 0;

    Mutex watchMutex_; ///< the device's watch
    uint32_t asked_ GUARDED_BY(watchMutex_) = 0;
    uint32_t toldByDevice_ GUARDED_BY(watchMutex_) = 0; ///< of those asked
    std::atomic<uint32_t> untold_{0};                   ///< counted by the device, to be looked for
    int32_t waits_ GUARDED_BY(watchMutex_) = 0;
    bool hasTarget_ GUARDED_BY(watchMutex_) = false;
};

} // namespace brisolt
