/* brisolt/capture.h: capture on failure. */
#ifndef BRISOLT_CAPTURE_H
#define BRISOLT_CAPTURE_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* While capture is on for a port, what goes to its protocol debug file (ComWriteProtocolDebugFile and the
 * like, the header of ComSetProtocolDebugFile included) is kept in memory instead: the latest bytes in a ring
 * of a given capacity. The program saves the ring to a file when something has failed. Entries may come from
 * any thread, also during a save: those that come after it has looked stay for the next one. */

/* Switches capture on with an empty ring of `capacity` bytes; saved files will go to `directory`, at most 259
 * characters, written with slashes or backslashes. Capture that is on starts afresh. 1; -1 bad or closed
 * port, null, a longer directory, or a capacity below 1; -2 no memory: capture is off then. */
int32_t ComSetDebugFileOnFail(int32_t port, const char *directory, int32_t capacity);
/* Adds bytes of the program's own as they are. 1; -1 bad or closed port, null, or a length below 0; -2
 * capture is off. */
int32_t ComWriteDebugFileOnFail(int32_t port, const void *bytes, int32_t length);
/* Saves the ring to comlog<port>_<mmddyy>_<slot>.txt in the directory and clears it; a directory that does
 * not end with a backslash is given one. There are slots 01 to 10; the lowest that no file there has is
 * taken. What is there is counted and cleaned up by the beginning of the name, comlog<port>, which for port 1
 * those of ports 10 to 19 and 100 to 199 share: from nine such files on, the oldest (of the first ten by
 * name) are deleted down to eight, with a pause of 100 ms after each that lets messages through as ComSleepMS
 * does; their slots are free from the next save on. A ring that has gone round is saved without the byte at
 * its write position; an empty one is saved in all its capacity, as zeros (but for what the last clear has
 * left). 1; -1 bad or closed port; -2 the directory has fewer than 2 characters, or capture is off; -3 the
 * file cannot be made or written (ComHostGetErrorText tells why); -4 no slot is free. After -3 and -4 the
 * ring is as it was. A program that is killed meanwhile leaves a file that is empty or ends anywhere, and the
 * ring is lost with the program. */
int32_t ComDebugFileOnFail_Save(int32_t port);
/* Empties the ring; capture stays on. Zeros are written up to the first zero byte. 1; [port]. */
int32_t ComClearDebugFileOnFail(int32_t port);
/* Switches capture off and forgets ring and directory: protocol entries go to their file again. 1; [port]. */
int32_t ComStopDebugFileOnFail(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
