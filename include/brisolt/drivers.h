/* brisolt/drivers.h: virtual ports, and functions of the caller's in the place of a port's own. */
#ifndef BRISOLT_DRIVERS_H
#define BRISOLT_DRIVERS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A virtual port has no device: what it reads, writes and tells is up to functions that the caller sets.
 * Everything built on these works over them: strings, waits for bytes, scripts, modem commands, transfers.
 * It has no rings and no thread of its own. So its notifications never come, peeks find nothing, nothing
 * that arrives can wake a wait (waits look every millisecond or two), and it is never scrambled.
 *
 * A function without its place taken, on a virtual port, gives -1 when it would need a device or a ring
 * (ComRead, ComWrite, ComStatus, ComOutBufStatus, the flushes, flow, lines, baud rate, framing, break,
 * carrier), and 0 for CTS, DSR and a break that was seen. Settings that are only stored are stored.
 */

/* Opens a port without a device. The port number, also when the port is open already, which is then left
 * as it is; -1 bad port number; -20, -21 memory. */
int32_t ComVirtualOpen(int32_t port);
/* Closes a virtual port and releases its memory; takes half a second. ComClose does, too. 1; -1 bad or
 * closed port, a port with a device, or another thread is closing it. */
int32_t ComVirtualClose(int32_t port);

/*
 * Each sets the function that a call is handed to from then on, on virtual ports and on those with a
 * device alike; null: the port's own again. The function gets the call's arguments and its result is the
 * call's. It runs on the thread that made the call, without a lock; it may call anything, for its own port,
 * too, and must be ready to be called from several threads at once. 1; [port].
 */
int32_t ComSetComBreakFunc(int32_t port, ComPortFunc function);          /* ComBreak */
int32_t ComSetComCarrierFunc(int32_t port, ComPortFunc function);        /* ComCarrier */
int32_t ComSetComDTRFunc(int32_t port, ComPortFunc function);            /* ComDTR */
int32_t ComSetComFlushFunc(int32_t port, ComPortFunc function);          /* ComFlush */
int32_t ComSetComFlushOutBufFunc(int32_t port, ComPortFunc function);    /* ComFlushOutBuf */
int32_t ComSetComReadFunc(int32_t port, ComReadFunc function);           /* ComRead */
int32_t ComSetComRingFunc(int32_t port, ComPortFunc function);           /* ComRing */
int32_t ComSetComSetBaudFunc(int32_t port, ComPortValueFunc function);   /* ComSetBaud */
int32_t ComSetComSetParmsFunc(int32_t port, ComSetParmsFunc function);   /* ComSetParms */
int32_t ComSetComSetFlowFunc(int32_t port, ComPortValueFunc function);   /* ComSetFlow */
int32_t ComSetComStatusFunc(int32_t port, ComPortFunc function);         /* ComStatus */
int32_t ComSetComOutBufStatusFunc(int32_t port, ComPortFunc function);   /* ComOutBufStatus */
int32_t ComSetComWriteFunc(int32_t port, ComWriteFunc function);         /* ComWrite */
int32_t ComSetComGetBreakStatusFunc(int32_t port, ComPortFunc function); /* ComGetBreakStatus */
int32_t ComSetComGetCTSStatusFunc(int32_t port, ComPortFunc function);   /* ComGetCTSStatus */
int32_t ComSetComGetDSRStatusFunc(int32_t port, ComPortFunc function);   /* ComGetDSRStatus */
int32_t ComSetComSetDTRFunc(int32_t port, ComPortFunc function);         /* ComSetDTR */
int32_t ComSetComClearDTRFunc(int32_t port, ComPortFunc function);       /* ComClearDTR */
int32_t ComSetComSetRTSFunc(int32_t port, ComPortFunc function);         /* ComSetRTS */
int32_t ComSetComClearRTSFunc(int32_t port, ComPortFunc function);       /* ComClearRTS */
int32_t ComSetComUpdateStatusFunc(int32_t port, ComPortFunc function);   /* kept, never called */

#ifdef __cplusplus
}
#endif

#endif
