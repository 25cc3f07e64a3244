/* brisolt/lines.h: line settings and status, and the scrambling of a link. */
#ifndef BRISOLT_LINES_H
#define BRISOLT_LINES_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Line settings ------------------------------------------------------------------------------- */

/* A change first waits until the device has sent what it holds, at most half a second (messages are let
 * through when yield is on), then discards what is left in both of its queues and applies the whole line
 * state. The rings are untouched. That the device refuses the setting is not reported. A driver function
 * in its place decides the result. On a virtual port without one: -1. */

/* Any rate in bits per second; stored unchecked. 1; [port]. */
int32_t ComSetBaud(int32_t port, int32_t baudRate);
/* parity 1 none, 2 odd, 3 even, 4 mark, 5 space; data bits 4 to 8; stop bits 1 one, 2 two, 3 one and a
 * half (mind the order: the opens take data bits first). 1; -1 also for a code that is none, and then
 * nothing is changed. */
int32_t ComSetParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits);
/* One of the three; the others stay as they are. Results as of ComSetParms; ComSetStop gives 1 or -1. */
int32_t ComSetPar(int32_t port, int32_t parity);
int32_t ComSetBits(int32_t port, int32_t dataBits);
int32_t ComSetStop(int32_t port, int32_t stopBits);

/* Break for the port's break time (hundredths of a second), then the line is clear again. A close in the
 * middle ends it; a request to quit does not. 1; [port]. */
int32_t ComBreak(int32_t port);
int32_t ComSetBreak_ON(int32_t port);
int32_t ComSetBreak_OFF(int32_t port);
/* Lowers DTR for the port's DTR time (hundredths of a second) and raises it again. 1; -1 also when the
 * port number in the port's parameters is below 1, or when the port is closed meanwhile. */
int32_t ComDTR(int32_t port);

/* ---- Line status --------------------------------------------------------------------------------- */

/* 1 carrier, 0 none, -1 also when the device has no such line to read (a pseudo terminal). */
int32_t ComCarrier(int32_t port);
/* The latched connected state that a dial sets: 1, 0; [port]. Not the line's state. */
int32_t ComCarrierTx(int32_t port);
/* Sets (nonzero) or clears that state. 1; [port]. */
int32_t ComSetCarrier(int32_t port, int32_t on);
/* 1 on, 0 off or not readable; [port]. */
int32_t ComGetCTSStatus(int32_t port);
int32_t ComGetDSRStatus(int32_t port);
/* 1 once after the device has seen a break, else 0; [port]. */
int32_t ComGetBreakStatus(int32_t port);
/* Copies "5.30" into 5 bytes. 1; -1 null. */
int32_t ComGetVersionNumber(char *buffer);

/* ---- Scrambling of a link ------------------------------------------------------------------------ */

/* With scrambling on, what ComWrite sends is scrambled (in the caller's buffer) and what ComRead delivers
 * is made clear again, byte by byte with one key; both ends need the same. What looks into the receive
 * ring without reading sees scrambled bytes. Off after an open; never on a virtual port. */

/* On when exactly 1, else off. 1; [port]. */
int32_t ComSetSecurity(int32_t port, int32_t on);
/* The key from a code: the sum of its bytes, low 8 bits; a sum of 0 gives the default key. 1; [port],
 * also null. */
int32_t ComSetCode(int32_t port, const char *code);

#ifdef __cplusplus
}
#endif

#endif
