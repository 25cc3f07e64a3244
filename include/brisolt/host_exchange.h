/* brisolt/host_exchange.h: write, read and know, without polling; devices that go and come back. */
#ifndef BRISOLT_HOST_EXCHANGE_H
#define BRISOLT_HOST_EXCHANGE_H

#include "../brisolt_host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Failures of the functions here and in the other host headers beside this one, unless said otherwise:
 *   -1 bad or closed port, bad argument      -2 the device is gone      -3 cancelled (ComCancel)
 *   -4 the device cannot or will not         -5 a signal handler ran on the calling thread before anything was
 *                                               done, so that Ctrl-C ends a wait
 * Times are in milliseconds; below 0: no limit. A wait does not let messages through. A cancel ends the one wait
 * that runs when it is given (of several threads' all), and never a later one; a close ends every wait. */

/* Hands over all `count` bytes, waiting for room at most that long (0: what fits now). While nothing is queued
 * the bytes go from the caller's buffer to the device, on the caller's thread; when the device stops taking
 * them, or the time is over, the transmit ring takes the rest as far as it has room: of a write of up to 4 KB at
 * once, if the port is lossless, has no notifications, escape function or pace, and no other thread waits for its
 * bytes (the rest leaves with the caller's next write or wait on the port, else within a millisecond or when the
 * device has room); of others when the device has taken nothing for 20 ms. Bytes of two callers never mix inside one
 * call; two writers take turns, readers are not held up. The buffer is not changed. On a port that is not
 * lossless what the ring took may be given up as after ComWrite. Before a program ends, ComHostDrain or
 * ComHostClose waits for what the ring still holds.
 * The count taken: less than `count` when the time was over, the port was closed, the device went, a cancel or
 * a signal came in the middle; -2, -3, -5 when nothing was taken; -1 also for a null buffer with a count above
 * 0 and a negative count. On a virtual port its write function is called until it has taken all. */
int32_t ComHostWrite(int32_t port, const void *buffer, int32_t count, int32_t milliseconds);

/* Reads what is there, at most `count` bytes; when nothing is there, waits for the first byte. The count; 0
 * none in time, or a count of 0; -2 the device is gone (after what was received before has been read); -3; -5;
 * -1 also for a null buffer and a negative count. */
int32_t ComHostRead(int32_t port, void *buffer, int32_t count, int32_t milliseconds);

/* The device's own descriptor for the program's event loop: it polls readable when bytes are there. From then
 * on the library takes no byte off the device but those that a call asks for (ComHostRead and ComRead no more
 * than their count; what was received before is read first, ask with a time of 0; a peek takes what it looks
 * at into the receive ring), so that poll and calls never miss one another: the program may even read the
 * descriptor itself. Notifications of received data are told no more. The descriptor is the library's: the
 * program must not close it. A kept device's is closed when the device goes (COM_HOST_EVENT_GONE): its number is
 * then no longer the port's, so stop polling it, and ask again when it has come back (COM_HOST_EVENT_BACK).
 * That of a line in TLS or of a remote serial port only polls: its bytes are read by calls alone.
 * The descriptor; -4 the device has none, or is kept and being looked for; -2 the device is gone; -1. */
int32_t ComHostDescriptor(int32_t port);

/* Waits until all that was written has left on the line: the rings, the device's own queue and its shift
 * register where it tells. 1; 0 not in time; -1; -2; -3; -5. */
int32_t ComHostDrain(int32_t port, int32_t milliseconds);

/* ---- A device that goes, and comes back ---------------------------------------------------------- */

/* 0 closed, or a bad number; 1 the device is there; 2 it is gone; 3 it is gone and being looked for.
 *
 * A pulled device stays gone: the waits above end with -2 at once, other functions see an empty line, the close
 * works. A port opened with the option "keep" waits for it (so many seconds, or for ever): meanwhile (3) waits
 * go on until their time is over, and a lossless ring takes what it has room for. It is known by its USB identity
 * (numbers, serial number, interface; without a serial number by the socket it is plugged into), else by its
 * path; a line over a network by its address. When it is back (1), line settings, flow control, DTR and RTS are
 * set again, what a lossless ring still held (what the driver had not taken) is sent, and what was received
 * before is still there to be read. A device that is there and may not be opened yet is tried again when the
 * host says that something has changed; a line over a network, and one of a registered driver, after 0.1 s, then
 * after twice as long each time, up to 5 s. */
int32_t ComHostGetPortState(int32_t port);

#ifdef __cplusplus
}
#endif
#endif
