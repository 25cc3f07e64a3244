/* brisolt/stream.h: reading and writing. */
#ifndef BRISOLT_STREAM_H
#define BRISOLT_STREAM_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Reading ------------------------------------------------------------------------------------- */

/* Takes up to `count` bytes out of the receive ring; never waits. Bytes copied, 0 none (or count below 1);
 * [port]. */
int32_t ComRead(int32_t port, void *buffer, int32_t count);
/* One byte (0 to 255), -1 none or bad or closed port. */
int32_t ComGetc(int32_t port);
/* Waits until `count` bytes are there and reads them; when the time is over, reads what there is.
 * `timeout` in hundredths of a second; below 11: 1000 (10 s). Lets messages through; neither escape, quit
 * nor cancel ends it. A count above the ring's size waits for the whole time; so may one that the ring's
 * size is no multiple of, since a ring that has filled up from its start takes more only when it has been
 * emptied (not that of a lossless port, ComHostSetLossless). Bytes read; -1 bad or closed port, also when
 * it is closed meanwhile.
 *
 * A write of this port that waits for the line holds up this call and every other read or status call, at
 * most for the write time-out (ComSetWriteTimeout). On a lossless port nothing waits for the line. */
int32_t ComReadTimed(int32_t port, void *buffer, int32_t count, int32_t timeout);
/* Reads until `maximum` bytes (result 1), the byte `terminator` (2; it is stored), or the time (3; seconds
 * plus 0.1 s). `buffer` must hold maximum + 1 bytes and is terminated with a zero byte. 4: escaped
 * (terminated) or cancelled (not terminated). -1: bad or closed port, also when closed meanwhile,
 * terminator below 0, maximum below 0, time-out below 1. A terminator above 255 never comes. A maximum of
 * 0 is full at once. Whatever yield is, messages are let through; a quit request counts as an escape. */
int32_t ComReadBuf(int32_t port, void *buffer, int32_t terminator, int32_t maximum, int32_t timeout);
/* Collects until nothing has come for `quiet` tenths of a second, or size - 1 bytes are there; puts a zero
 * byte behind what the read gives, which may be less where functions of the program's own tell and read
 * (ComSetComReadFunc). The bytes that the read gave; -1 bad or closed port (also closed meanwhile), quiet
 * below 1, size below 1, the escape key (27), a quit request or a cancel. Messages are let through whatever
 * yield is. */
int32_t ComReadBufToQuiet(int32_t port, void *buffer, int32_t size, int32_t quiet);
/* Reads what is there, up to and including the byte `terminator` (its low 8 bits) or maximum + 1 bytes.
 * Not terminated. Never waits. Bytes read; [port]. */
int32_t ComReadBufToEmpty(int32_t port, void *buffer, int32_t terminator, int32_t maximum);
/* Bytes waiting in the receive ring; on an empty ring takes what the device holds. Count; [port]. */
int32_t ComStatus(int32_t port);

/* ---- Writing ------------------------------------------------------------------------------------- */

/* Sends `count` bytes: straight to the device when nothing is queued and it has room, else into the
 * transmit ring. Never waits for room in the ring; straight to the device it waits until the line has
 * taken the bytes, at most for the write time-out (lossless ports never wait, ComHostSetLossless). With
 * scrambling on, the caller's buffer is changed. Bytes taken (0 when none, or count below 1); [port]. */
int32_t ComWrite(int32_t port, void *buffer, int32_t count);
/* Sends the low 8 bits of `value`. As ComWrite. */
int32_t ComPutc(int32_t port, int32_t value);
/* Sends a string; `|` sends a carriage return, `~` pauses one second (letting messages through when yield
 * is set; a quit request cuts the pause short). Bytes that find no room are lost. 1; -1 bad or closed
 * port, also when it is closed meanwhile, or null. */
int32_t ComPuts(int32_t port, const char *string);
/* Bytes not yet sent: in the transmit ring and in the device. Count; [port]. */
int32_t ComOutBufStatus(int32_t port);

/* Discards received data, in the ring and in the device, after a wait: of the port's flush delay (1 s
 * after an open), or of `seconds`. With yield on, the wait lets messages through and a quit request cuts
 * it short. 1; -1 bad or closed port, also when it is closed meanwhile. */
int32_t ComFlush(int32_t port);
int32_t Com_Flush(int32_t port, int32_t seconds);
/* Discards data not yet sent, in the ring and in the device. 1; [port]. */
int32_t ComFlushOutBuf(int32_t port);
/* Waits until the device has sent what it was given, at most for the write time-out. Nonzero success, 0
 * not all sent; [port]. */
int32_t ComFlushImmediate(int32_t port);
/* How long a device write may take, in milliseconds (2000 after ComOpen, no limit after ComPreOpen); 0 or
 * all ones: no limit. 1; [port]. */
int32_t ComSetWriteTimeout(int32_t port, uint32_t milliseconds);
/* Largest block of one device write, clamped to 1 to 1200 (1024 after an open). 1; [port]. */
int32_t ComSetPortMaxWriteChars(int32_t port, int32_t count);
/* enable 1 or more: a byte with a parity error is replaced by `replacement` (its low 8 bits); below 1:
 * off. Until the next change of the line settings. 1; -1 also when the device refuses. */
int32_t ComSetLineErrorReplacement(int32_t port, int32_t enable, int32_t replacement);
/* Line errors since the last call (COM_HOST_ERROR_... of brisolt_host.h), then cleared; [port]. */
int32_t ComGetLineError(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
