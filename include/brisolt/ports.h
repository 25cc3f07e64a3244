/* brisolt/ports.h: opening and closing ports, their control lines, their threads and their memory. */
#ifndef BRISOLT_PORTS_H
#define BRISOLT_PORTS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Tracked memory ------------------------------------------------------------------------------ */

/* The address of a port's record, or null for a bad port or a port that is not open. The record is the
 * library's own; it lives until the port is closed. */
void *ComPidtoP(int32_t port);

/* Forgets a port's tracked blocks without releasing them; for a pool known to be empty. */
void ComInitMalloc(int32_t port);

/* `size` zero-filled bytes that the port's close will release at the latest (the port need not be open
 * yet). Null for a bad port or when memory is short. */
void *ComMalloc(int32_t port, uint32_t size);

/* Releases a block of ComMalloc. 0; 0 also for null; -1 bad port, empty pool, or an address that is not in
 * this port's pool. */
int32_t ComFree(int32_t port, void *address);

/* Releases every block of the port's pool. 1; -1 bad port. */
int32_t ComFreeAll(int32_t port);

/* ---- Opening and closing ------------------------------------------------------------------------- */

/* The codes of parity and stop bits, here and in ComSetParms. */
enum {
    COM_PARITY_NONE = 1,
    COM_PARITY_ODD = 2,
    COM_PARITY_EVEN = 3,
    COM_PARITY_MARK = 4,
    COM_PARITY_SPACE = 5
};
enum { COM_STOP_1 = 1, COM_STOP_2 = 2, COM_STOP_1_5 = 3 };

/*
 * Opens the serial device of `port`: the path given to ComHostMapDevice, else /dev/comN, else
 * /dev/ttyS(N-1). The device is opened for this port alone.
 *   deviceName  kept for the logs (31 characters); exactly "THUNK" opens a port without an I/O thread
 *               (direct mode: every read, write and status call moves the bytes itself). Null: empty.
 *   baudRate    bits per second; any rate the device takes
 *   dataBits    4 to 8       parity  1 none, 2 odd, 3 even, 4 mark, 5 space (COM_PARITY_...; not the numbers
 *               of a line state, COM_HOST_PARITY_...)
 *   stopBits    1 one, 2 two, 3 one and a half (COM_STOP_...)
 *   rxBufSize, txBufSize     ring sizes in bytes; below 2048: 2048
 * The port starts without flow control, DTR and RTS raised, with a pace of 50 ms between rounds.
 * Returns the port number, or
 *   -1 bad port number           -2 already open            -20 to -24 memory
 *   -25 device not opened (ComHostGetErrorText tells why)   -27 event mask refused
 *   -29 no event                 -30 queue sizes refused    -33 bad parity
 *   -34 bad data bits            -35 bad stop bits          -36 line state refused by the device
 *   -38 no I/O thread            -39 time-outs refused
 */
int32_t ComOpen(const char *deviceName, int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize);

/* Opens a port on a device handle that the caller holds and keeps: a handle of ComHostOpenDevice or any
 * descriptor of a terminal device. Arguments as for ComOpen; the pace is 200 ms. Differences in results:
 * -25 invalid handle (all ones), one that is closed already, that another port uses or that is no serial
 * device; -26 properties unreadable; -32 baud
 * rate above the device's maximum; -33 only on devices that check parity; -34 also for 8 data bits with
 * parity. After -33, -35 and a -34 for data bits outside 4 to 8 the handle is closed; after all other
 * failures it stays the caller's. "THUNK" gives direct mode only on hosts of platform identifier 1, which
 * this is not. */
int32_t ComPreOpen(const char *deviceName, int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                   int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize, int32_t deviceHandle);

/* ComPreOpen with device name "COM" and rings of 4096 bytes. */
int32_t CPreOpen(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity, int32_t stopBits,
                 int32_t deviceHandle);

/* Closes a port: stops its thread, lowers DTR, closes the device, restores the settings the device had,
 * releases all memory of the port. Takes some 0.6 s, in direct mode 5.6 s. A wait in progress ends at once. A
 * block that is being written may take 5 s longer as long as its bytes move (1 s for ComPreClose); when none
 * has moved for half a second, or for the time of 64 bytes if that is longer, the write ends with what has
 * left. Bytes that are still queued are dropped: wait for ComOutBufStatus 0 before the close to have them
 * sent. Of a port of ComPreOpen it closes the caller's handle too. May be called from a notification function
 * of the port; then, and when some function of the caller's is still running inside the port, the device is
 * closed when that function has returned, and can be opened again only after that. 1; -1 not open, or another
 * thread is closing it. */
int32_t ComClose(int32_t port);
/* The same for a port of ComPreOpen: DTR, the line settings and the caller's handle are left as they are. A
 * port of ComOpen has its device closed all the same. */
int32_t ComPreClose(int32_t port);

/* 1 the port is open, else 0 (also for a bad port number). While an open runs the port is not open yet, but
 * its number is taken. */
int32_t ComOpenState(int32_t port);
/* The device handle of an open port (on this host a descriptor), -1. That of a port of ComOpen belongs to
 * the library. */
int32_t ComPortdcb(int32_t port);

/* ---- Control lines and flow control -------------------------------------------------------------- */

enum {
    COM_FLOW_RTS_CTS = 0,
    COM_FLOW_XON_XOFF = 1,
    COM_FLOW_NONE = 2,
    COM_FLOW_DTR_DSR = 3,
    COM_FLOW_RTS_CTS_DTR_DSR = 4,
    COM_FLOW_XON_XOFF_DTR_DSR = 5
};

/* Flow control: 0 RTS/CTS, 1 XON/XOFF, 2 none, 3 DTR/DSR, 4 RTS/CTS and DTR/DSR, 5 XON/XOFF and DTR/DSR.
 * Discards what the device's queues hold and raises DTR and RTS. 1 (whatever the device answers); -1 bad
 * or closed port, or unknown mode. */
int32_t ComSetFlow(int32_t port, int32_t mode);
/* Raise a line. 1; -1 bad port number; -11 port not open; -2 the device refuses (it has no such line). */
int32_t ComSetDTR(int32_t port);
int32_t ComSetRTS(int32_t port);
/* Lower a line. 1; -1 bad or closed port; -2 the device refuses. */
int32_t ComClearDTR(int32_t port);
int32_t ComClearRTS(int32_t port);

/* ---- The I/O thread and the port trace ----------------------------------------------------------- */

/* These give 0 when the port is bad or not open, else 1 unless said otherwise. */

/* Priority of the port's thread: 1 lowest, 4 below normal, 5 normal, 6 above normal, 9 highest, 10 time
 * critical; any other level normal. As far as the host allows. */
int32_t ComSetBackgroundPriority(int32_t port, int32_t level);
/* The pace: the least pause between two rounds of the port's thread, in milliseconds, at most 10000. With
 * 0 every byte moves at once. A thread with nothing to do sleeps whatever the pace. */
int32_t ComSetBackgroundTimeout(int32_t port, uint32_t milliseconds);
/* The tick count (milliseconds) at which the port was opened. */
int32_t ComStartupTime(int32_t port);
/* Holds the port's thread back until ComResume, at most for about 500 ms. */
int32_t ComSuspend(int32_t port);
int32_t ComResume(int32_t port);
/* Whether ComWrite may write straight to the device while the transmit ring is empty. */
int32_t ComSuspendPortWriteThru(int32_t port);
int32_t ComResumePortWriteThru(int32_t port);
/* Size of the transmit ring in bytes. */
int32_t ComOutBufSize(int32_t port);

/* Switches the port's trace file on (a path of at most 259 characters; a longer one is refused) or off
 * (null or empty). The trace tells every device read and write with its bytes in hex. An existing file is
 * kept and gets a new header. 1, also when the file cannot be made (entries then
 * appear once it exists); -1 also for a longer path. */
int32_t ComSetPortDebugFile(int32_t port, const char *path);

#ifdef __cplusplus
}
#endif

#endif
