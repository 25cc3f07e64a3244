// A round: what moves bytes between the rings and the device. The I/O thread runs it, in direct mode the
// reading and writing calls do.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// Moves what the device holds into the receive ring, as far as one piece of room goes. How many bytes.
int32_t receiveStep(Port& port) noexcept WITH_LOCK(port.portLock);

/// Replaces a received byte value by another in the unread bytes, when that is switched on.
void replacementStep(Port& port) noexcept WITH_LOCK(port.portLock);

/// Hands at most one block of the transmit ring to the device. Whether the ring has given up bytes. With portLock
/// but on a lossless port, whose sending holds up nobody who reads.
bool transmitStep(Port& port) noexcept;

/// A round in the caller's thread: everything but notifications.
void directRound(Port& port) noexcept WITH_LOCK(port.portLock);

/// A round of the I/O thread, notifications included. It takes portLock itself. `mayReceive` false: the
/// device is known to hold nothing. True when there was something to do: the device had bytes, somebody was
/// still to be told of some, or the transmit ring has given up some.
bool threadRound(Port& port, bool mayReceive);

/// Takes what the device holds for a caller that waits for bytes, as the I/O thread would have; who is
/// notified of data hears of it from the thread. True when the device had bytes.
bool takeFromDevice(Port& port) noexcept;

/// Takes all that the device holds and tells whom the port notifies, who must all be told by message. False
/// when the device may hold more: the ring is full, or somebody else is busy with the port.
bool tellFromDevice(Port& port);

/// Hands the device what a lossless port has queued, for a caller that waits. False when the device took
/// nothing although there is something to send.
bool sendToDevice(Port& port) noexcept;

/// Whether a lossless port has queued bytes that may go as soon as the device has room.
bool hasUnsent(const Port& port) noexcept;

/// The ring gives up what the device takes now, no more: the sending of a lossless port. Whether it took any.
bool transmitLossless(Port& port) noexcept WITH_LOCK(port.sendLock);

/// What the subsystem of notifications does when a round brought data; set once, on first use. It runs
/// without portLock: a function of the caller's may use other ports, whose functions use this one.
void setNotificationStep(void (*step)(Port& port)) noexcept;
/// Whether anybody is to be told of received data on the port.
bool hasNotifications(const Port& port) noexcept;

} // namespace brisolt
