// The table of ports: who may open a number, the port behind it, and the holds that keep it alive.
#pragma once

#include <atomic>
#include <cstdint>

#include "port/port.h"

namespace brisolt {

inline constexpr int32_t firstPort = 1;
inline constexpr int32_t lastPort = 256;
inline bool validPort(int32_t number) noexcept {
    return number >= firstPort && number <= lastPort;
}

namespace table {

/// Port headers are recycled but never given back to the host: a hold may be tried on a header that has
/// just been freed, which then says so.
struct Slot {
    std::atomic<int32_t> claimed{0}; ///< 1 from the start of an open to the moment a close clears `open`
    std::atomic<Port*> port{nullptr};
    std::atomic<bool> ofParent{false}; ///< what a child has of it in its hands means its parent's port
};
extern Slot slots[lastPort + 1];

/// A number that an open may choose by itself: no port of a parent of this process had it at the fork.
inline bool maySuggest(int32_t number) noexcept {
    return !slots[number].ofParent;
}
/// Takes the number for an open: false when it is taken.
bool claim(int32_t number) noexcept;
void unclaim(int32_t number) noexcept;
/// A fresh header with one hold, the caller's; null when memory is short.
Port* make(int32_t number) noexcept;
/// From here on operations find the port.
void publish(Port& port) noexcept;
/// Operations find it no more and the number may be opened again.
void withdraw(Port& port) noexcept;

inline bool tryHold(Port& port) noexcept {
    uint32_t holds = port.holds.load(std::memory_order_relaxed);
    while (holds != 0)
        if (port.holds.compare_exchange_weak(holds, holds + 1, std::memory_order_acq_rel))
            return true;
    return false;
}
void freePort(Port& port) noexcept;
inline void letGo(Port& port) noexcept {
    if (port.holds.fetch_sub(1, std::memory_order_acq_rel) == 1)
        freePort(port);
}
/// The open port of that number with a hold on it, else null.
inline Port* hold(int32_t number) noexcept {
    if (!validPort(number))
        return nullptr;
    Slot& slot = slots[number];
    for (;;) {
        Port* port = slot.port.load(std::memory_order_acquire);
        if (port == nullptr)
            return nullptr;
        if (!tryHold(*port))
            continue; // on its way out of the slot
        if (slot.port.load(std::memory_order_acquire) == port && port->number == number)
            return port;
        letGo(*port);
    }
}

} // namespace table

/// A hold on an open port for the length of a scope; empty when the number is bad or not open.
class HeldPort {
public:
    explicit HeldPort(int32_t number) noexcept : port_(table::hold(number)) {}
    /// Takes over a hold.
    explicit HeldPort(Port* port) noexcept : port_(port) {}
    ~HeldPort() {
        if (port_ != nullptr)
            table::letGo(*port_);
    }
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;
    explicit operator bool() const noexcept { return port_ != nullptr; }
    Port& operator*() const noexcept { return *port_; }
    Port* operator->() const noexcept { return port_; }

private:
    Port* port_;
};

/// portLock for the length of a scope. While it is held no round runs: the I/O thread is suspended.
class HOLDS_A_LOCK HeldLock {
public:
    explicit HeldLock(Port& port) noexcept TAKES_LOCK(port.portLock) : lock_(port.portLock) { lock_.lock(); }
    ~HeldLock() GIVES_LOCK() { lock_.unlock(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

private:
    PortLock& lock_;
};

/// sendLock for the length of a scope; taken after portLock where both are needed.
class HOLDS_A_LOCK HeldSend {
public:
    explicit HeldSend(Port& port) noexcept TAKES_LOCK(port.sendLock) : lock_(port.sendLock) { lock_.lock(); }
    ~HeldSend() GIVES_LOCK() { lock_.unlock(); }
    HeldSend(const HeldSend&) = delete;
    HeldSend& operator=(const HeldSend&) = delete;

private:
    PortLock& lock_;
};

} // namespace brisolt
