/* brisolt/transfer.h: text files over a port, without a protocol. */
#ifndef BRISOLT_TRANSFER_H
#define BRISOLT_TRANSFER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A file goes out byte by byte as it stands, but for its line ends: with the port's stripLF set no line
 * feed (10) is sent; else with addCR set (as after ComOpen) a line feed that does not follow a carriage
 * return (13) in the file gets one before it. What is received goes into a file, which is created or
 * emptied first and which nobody else may write meanwhile: one that somebody has open for writing, this
 * program included, is refused and left as it is. File names may have backslashes. The bytes are counted in
 * the port's progress record (progress.h).
 *
 * No byte of the file is lost to a full transmit ring: a send waits for room. What the device does with a
 * block that it cannot take is the port's business (ComHostSetLossless). Of a call that fails the file
 * stays as far as it was written.
 */

/* ---- In one call --------------------------------------------------------------------------------- */

/* Sends a file. After every character it waits charDelay, after every line feed of the file lineDelay
 * (hundredths of a second, plus 1 ms; below 0 as 0), and throws away what has been received. Messages are
 * not handled; no end character is sent. 1 the file was sent, to the port's transmit ring at least; -1 bad
 * or closed port, also when closed meanwhile, no name, file not to be read, the port takes no bytes, or
 * cancelled (ComCancel), which ends its waits, too. */
int32_t ComSendA(int32_t port, const char *name);

/* Receives a file until the byte `endChar` (not stored; one above 255 never comes). `timeout`: seconds
 * without a byte. Lets messages through whatever yield is, and looks for the character `escape` (its low 8
 * bits) among them, not in what is received. 1 escape, quit requested, cancelled (ComCancel) or the port
 * closed meanwhile; 2 end character; 3 time-out: after these three received data is discarded as by
 * ComFlush. -1 bad or closed port, escape below 1, endChar below 0, timeout below 1, no name, file not to
 * be created, or not all could be written (the disk is full). */
int32_t ComRecvA(int32_t port, const char *name, int32_t escape, int32_t endChar, int32_t timeout);

/* ---- Step by step -------------------------------------------------------------------------------- */

/*
 * A start call, then steps as long as they give 5. A port has one such transfer at a time: a start while
 * one is open is refused, and so is a step when none is open in its direction. A transfer is over, its file
 * closed and the port free for the next, when a step gives anything but 5, when it is aborted, or with the
 * port. The next one, ComSendA and ComRecvA included, may begin while an abort still waits to discard
 * received data: once its file is open the abort discards no more, what comes is the new transfer's.
 *
 * A step that is called while another one is being made (by another thread, or by a function that the step
 * lets run) gives 5 and does nothing. Each pair or triple of names is one function.
 */

/* Begins to send a file in chunks of `chunkSize` bytes, at most 9999; below 1 every step takes one byte of
 * the file. Clears the progress record and sets the carrier-loss protocol to 101. 1; -1 bad or closed port,
 * no name, file not to be read, or a transfer is open already. */
int32_t CInitSndAPkt(int32_t port, const char *name, int32_t chunkSize);
int32_t ComSA_Start(int32_t port, const char *name, int32_t chunkSize);
/* Queues the next chunk; one may come out a byte longer when a carriage return was added. Waits charDelay
 * (milliseconds) after each byte of the file and lineDelay (hundredths of a second, plus 1 ms) after the
 * chunk, each only when above 0, and up to 20 ms a byte while more than 1000 bytes wait to be sent, at most
 * 1 s in all. A chunk that finds no room goes on in the next steps. With yield on, the waits let messages
 * through.
 *   5   call again
 *   1   the end of the file, or the port's escape character or a request to quit: the end marker 26 is
 *       sent, the protocol set to 100, received data thrown away. The escape counts in chunks of any size,
 *       those of one byte included, and ends a charDelay in which it is typed. Pressed twice, it does not
 *       wait until the line has room for the marker.
 *   -1  bad or closed port, also when closed meanwhile, no transfer open, aborted meanwhile, a file that
 *       cannot be read on, a port that takes no bytes: no end marker is sent */
int32_t CSendAPkt(int32_t port);
int32_t ComSA_Next(int32_t port);

/* Begins to receive a file up to the byte `endChar` (outside 0 to 255 it never comes). `escape` and
 * `timeout` have no effect: the port's escape character counts, and 20 s without data. Clears the progress
 * record and sets the carrier-loss protocol to 102. 1; -1 bad or closed port, no name, file not to be
 * created, or a transfer is open already. */
int32_t CInitRcvAPkt(int32_t port, const char *name, int32_t escape, int32_t endChar, int32_t timeout);
int32_t ComRA_Start(int32_t port, const char *name, int32_t escape, int32_t endChar, int32_t timeout);
/* Moves what waits into the file, never waiting for more; lets messages through. A million bytes are the
 * most of one step.
 *   5   call again
 *   1   the port's escape character or a request to quit; 2 the end character came (it and what follows it
 *       reach no file); 3 nothing came for 20 s. After these the protocol is set to 100 and received data
 *       discarded as by ComFlush, which takes the port's flush delay.
 *   -1  bad or closed port, also when closed meanwhile, no transfer open, aborted meanwhile, or not all
 *       could be written */
int32_t CRecvAPkt(int32_t port);
int32_t ComRA_Next(int32_t port);

/* Ends the transfer of the port, whichever it is: closes its file, discards received data as by ComFlush,
 * waits lineDelay (hundredths of a second, plus 1 ms), discards again. A step that is being made gives -1
 * and closes the file as soon as it sees. Without a transfer it discards all the same. 1; -1 bad or closed
 * port, also when closed meanwhile. */
int32_t CTermAPkt(int32_t port);
int32_t ComSA_Abort(int32_t port);
int32_t ComRA_Abort(int32_t port);

/* ---- On a thread of its own ---------------------------------------------------------------------- */

/*
 * Begin a transfer whose steps a thread makes, one every 25 ms: a send in chunks of 25 bytes, a receive up
 * to the byte 26. The outcome is told in the progress record (ComGetFileCompletionState): 10000 while it
 * runs, then 10001 finished (a step gave 1, 2 or 3) or 10002 failed or stopped. Sets the carrier-loss
 * protocol to 201. 1; -1 bad or closed port, a port in direct mode, or a transfer is open already:
 * nothing is changed then; and -1 with 10002: no name, a file that cannot be opened, or the host has no
 * memory or no thread. The port may be closed at any time, the thread ends with it.
 */
int32_t ComSA_Thread(int32_t port, const char *name);
int32_t ComRA_Thread(int32_t port, const char *name);
/* Stops the thread before its next step, with 10002. A send is over then, as by ComSA_Abort, and the port
 * free for the next transfer; a receive stays open for ComRA_Abort (or for steps of the caller's). Always 1,
 * whatever the port. */
int32_t ComA_Thread_Abort(int32_t port);

/* ---- Beside them --------------------------------------------------------------------------------- */

/* Takes up to `count` waiting bytes as ComRead does and keeps the text of them: 32 to 126, line feed and
 * carriage return. The buffer holds count + 1 bytes and is terminated behind what was kept; what lies
 * behind that is undefined. Characters kept; 0 also for a bad or closed port or a count below 1 (the buffer
 * is an empty string then), and for null. */
int32_t ComRead_ASCII(int32_t port, char *buffer, int32_t count);
/* A file's size in bytes, 2147483647 for larger ones; -1 null, no name or a file that cannot be opened. */
int32_t ComSizeA(const char *name);

#ifdef __cplusplus
}
#endif

#endif
