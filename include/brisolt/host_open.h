/* brisolt/host_open.h: ports opened by path in one call, how a path tells what is wanted of its device, and
 * line settings that are read back. */
#ifndef BRISOLT_HOST_OPEN_H
#define BRISOLT_HOST_OPEN_H

#include "../brisolt_host.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Paths with options: PATH?KEY=VALUE&KEY=VALUE, wherever a path names a device (here, ComHostMapDevice,
 * ComHostOpenDevice, the commands, telephony.ini). A device file that is really named so, question
 * mark and all, is opened as it stands. An unknown key or value, one key twice, or one that the driver cannot do at
 * all, fails the open; ComHostGetErrorText then names it and what is possible. Keys and values are written in
 * small letters as here; nothing behind the "?" or a last "&" is nothing. The default stands first.
 *
 *   dtr, rts           on, off, leave   what an open does to the line. "off": it is low from the first moment
 *                      on that the host allows: Linux raises both while it opens a UART that nobody else has
 *                      open, and they fall as soon as its open returns, some 0.1 ms later. "leave": not
 *                      touched by us (at a first open Linux has raised both all the same)
 *   close              lower, leave     "leave": at the close both lines stay as they are, and the host does
 *                      not lower them either (a HUPCL that the device had stays off): a board is not reset
 *   exclusive          yes, no          "no": others may open the device too. "yes" keeps to the lock files of
 *                      UUCP programs as well (/run/lock/LCK..NAME, the name that of the device that a link
 *                      leads to, without /dev/, other slashes as "_"): one of a living process refuses the
 *                      open and is named in the text (one without a number for its first 5 seconds, too), and
 *                      where the folder can be written one of ours stands there while the device is open
 *   restore            yes, no          the settings that the device had before come back at the close
 *   low-latency        leave, on        the driver hands over each byte at once (ASYNC_LOW_LATENCY, and the
 *                      latency timer of adapters that have one). A device that cannot is opened all the same
 *   rs485              off, driver, rts half duplex. "driver": the kernel's own mode, fails where there is
 *                      none; "rts": the library raises RTS before it sends and lowers it when the last bit has
 *                      left, fails where there is no RTS; from the open on RTS listens, whatever "rts" says; what
 *                      is written then goes through the transmit ring
 *   rs485-rts          high, low        the level of RTS while sending
 *   rs485-before, rs485-after   milliseconds, 0 to 10000, default 0: pauses round a block
 *   rs485-echo         no, yes          with "driver": what we send is received too
 *   rs485-termination  leave, on, off   with "driver": the bus resistor, where it switches one. What the kernel's
 *                      driver grants otherwise than asked (an echo, a pause) fails the open, and the text says
 *                      what it can do. Any of these but the default fails without rs485
 *   marks              no, yes          errors and breaks stand in the stream where they happened: 255, 0 and
 *                      the byte (0 for a break); a received 255 is 255, 255; an overrun leaves none. For
 *                      nine-bit protocols and listeners
 *   keep               no, yes, seconds (1 to 1000000)   the port waits for a device that went and takes it up
 *                      again (brisolt/host_exchange.h). One that is back but held by somebody is tried again
 *                      after 0.1 s, then after twice as long each time, up to 5 s, and soon when it is closed
 *
 * "null-modem:NAME" also has paced=yes and autobaud=yes. A registered driver gets its path without the keys
 * above and with all others, which are the driver's to know; of those above it can do dtr, rts, close, keep
 * and rs485=rts, which the library does through the driver's own functions (all but keep through `line`: a driver
 * without it has their defaults alone). An end of a null modem or loop has its lines so before the other sees it.
 *
 * "COM7?KEY=VALUE" is the path that port 7 would open with these options behind it.
 *
 * Lines over a network, HOST a name or an address (IPv6 in brackets), PORT a number:
 *   tcp:HOST:PORT           bytes only: settings are taken and go nowhere, ComHostGetLines is -4
 *   rfc2217:HOST:PORT       a serial port at the far end (telnet with the com-port option): rate, framing, flow
 *                           control, DTR, RTS, break, purge, modem and line state. The option has 5 to 8 data bits
 *   tls:HOST:PORT, rfc2217-tls:HOST:PORT   the same inside TLS (1.2 and later), by the module libbrisolt-tls.so
 *   connect       milliseconds, 1 to 600000, default 5000: for all up to a connection (name, every address, TLS)
 *   answer        milliseconds, 1 to 600000, default 2000: for the answer to one request (rfc2217 alone)
 *   ca, cert, key, name   TLS: files of the authorities (default: the system's), of our certificate and its key
 *                 (without a password); what the far end's certificate must bear (default: HOST)
 *   verify        yes, no   "no": a certificate of the far end is not checked
 * A setting is a request: it waits for its answer, which is what ComHostGetLine tells. Another value than asked
 * fails the call, as no answer in time does. An open whose rate or framing is refused or not answered fails with
 * -36. DTR, RTS, break and flow control need no answer; a change of flow control on an open line waits for one
 * all the same. What the far end tells of lines and errors moves the counters at once, while somebody reads or
 * the port's thread does. What was written has left when the far end's host has confirmed it (ComHostDrain). A far end that is
 * gone is a device that is gone; "keep" connects again after 0.1 s, then after twice as long each time, up to 5 s.
 *
 * "usb:VID:PID[:SERIAL[:INTERFACE]]" (VID and PID in hex, any field may be "*") is the one USB device that
 * fits; none or several fail the open, and the text lists what is there.
 */

/* Opens `path` on the highest port number from 128 downwards that is neither open nor mapped by the program,
 * ready for use: bytes move at once (pause 0), nothing is lost (ComHostSetLossless), rings of 64 KB, no flow
 * control. `framing` is "8N1" and its like: data bits 4 to 8, parity N, O, E, M or S in any letter case, stop
 * bits 1, 1.5 or 2; null is "8N1". The number is mapped to the path until the port is closed. ComClose or
 * ComHostClose closes it, and every function works on it. What waits on the device from before the open is
 * discarded (not what a line over a network has said since we connected).
 * The port number, or ComOpen's code: -25 also for a bad option, -33 to -35 for a bad framing; -36 the device
 * refused the settings, or runs otherwise (another framing, a rate off by more than 3 %; the text says what it
 * runs at); -28 no number is free; -1 null path, negative rate. ComHostGetErrorText tells why. */
int32_t ComHostOpen(const char *path, int32_t baudRate, const char *framing);

/* Closes any port, a virtual one, too, without the pauses of ComClose: waits at most that long (milliseconds;
 * 0 not at all, -1 no limit) until everything written has left, then closes at once. A cancel ends the wait, a
 * signal does not. A port of ComPreOpen leaves the caller's handle and lines as ComPreClose does. 1; 0 closed,
 * but bytes were left behind; -1 bad or closed port, or another thread is closing it. */
int32_t ComHostClose(int32_t port, int32_t milliseconds);

/* Sets rate, framing and flow control (0 to 5 as for ComSetFlow, COM_FLOW_...) in one step, without discarding
 * a byte, and reads back what the device really has. A rate of 0, a null framing, a flow of -1: as it is. DTR
 * and RTS stay as they are where no handshake moves them. 1; -33 bad parity, -34 bad data bits, -35 bad stop
 * bits or a text that is no framing; -4 the device refused, or runs otherwise (a rate off by more than 3 %;
 * ComHostGetErrorText says what it runs at), and everything is as before; -2 the device is gone; -1 bad or
 * closed port, negative rate, unknown flow. */
int32_t ComHostSetLine(int32_t port, int32_t baudRate, const char *framing, int32_t flow);

/* What the device runs at now. state->size is set by the caller. 1; -1 bad or closed port, null or too small a
 * record, a port without a device; -2 the device is gone. */
int32_t ComHostGetLine(int32_t port, ComHostLineState *state);

#ifdef __cplusplus
}
#endif
#endif
