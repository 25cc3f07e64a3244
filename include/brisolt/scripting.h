/* brisolt/scripting.h: looking into received bytes, waiting for strings and answering them. */
#ifndef BRISOLT_SCRIPTING_H
#define BRISOLT_SCRIPTING_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Peeks --------------------------------------------------------------------------------------- */

/* These look at bytes that have come and nobody has read; a read still returns them. Positions are
 * offsets into the unread bytes, 0 being the next that ComRead returns; where nothing is found the position
 * is left as it is. On an empty ring they take what the device holds, as ComStatus does. On a virtual port
 * there is nothing to see. With scrambling on they see scrambled bytes. */

/* The first place of a byte value (0 to 255). 1 found; 0 not there; -1 bad or closed port, null, or no byte
 * value. ComPkChar does without the position. */
int32_t ComPeekChar(int32_t port, int32_t character, int32_t *position);
int32_t ComPkChar(int32_t port, int32_t character);
/* Copies the next `count` bytes, as far as they are there; the copy is not terminated. Bytes copied, 0 for
 * a count below 1; [port], also null. */
int32_t ComPeekBuf(int32_t port, void *buffer, int32_t count);
/*
 * Searches the unread bytes up to the first NUL for a pattern. 1 found; 0 not; -2 no memory; [port], also
 * null. In a pattern `?` is any byte, and a character with a `*` behind it stands for as many of that
 * character as there are, none included; `?*` leaves open what comes before the rest of the pattern. A `?`
 * behind a `?` stands for itself, and so does a `*` at the start or behind `?*`. The matcher never goes
 * back. With wildcards the position may lie before the match: it is the first place at which an attempt
 * met a wildcard and failed. An empty pattern, or one with more than 150 `?*`, is not found.
 */
int32_t ComPeekString(int32_t port, const char *pattern, int32_t *position);
/* The same for a plain string; an empty one is found at 0 when anything is unread. */
int32_t ComPeekString_NoWildCard(int32_t port, const char *string, int32_t *position);
/* The search of ComPeekString in a text of the caller's. 1, position set; 0 not found, or null. */
int32_t ComStrStr(const char *text, const char *pattern, int32_t *position);

/* ---- Stimulus and response ----------------------------------------------------------------------- */

/*
 * A stimulus call takes bytes from the port until a string that it waits for occurs in them, sends the
 * answer (as ComPuts does: `|` a carriage return, `~` a pause of a second) and tells which string it was.
 * A string that has come counts, whatever becomes of the answer: its result is given also when the port is
 * closed while the answer goes out.
 *
 * The bytes stay in the port's match buffer of 10000 bytes, zero-terminated. Letter case counts, there are
 * no wildcards, and a string may come in several pieces. Of several strings the first in the list wins.
 *
 *                        bytes between   dropped        match buffer    results for time over,
 *                        two searches                   emptied first   maximum, closed meanwhile
 *   ComStimulus               1          NUL and 255        yes              2    3    -1
 *   ComStimulusFast      up to 100       NUL and 255        yes              2    3    -1
 *   ComStimulusArray          1          none               no              -2   -3   -14
 *   ComStimulusArrayFast up to 100       NUL and 255        no              -2   -3   -14
 *   ComStimulusArray2         1          NUL                yes             -2   -3    -1
 *
 * A call that takes up to 100 takes as many as are there before it searches; after one that takes a byte at
 * a time what follows the string is still in the port. A NUL that is kept ends the text that is searched
 * until the call ends. An empty string is found at once; where the buffer is not emptied first, with the
 * first byte.
 *
 * A call wakes when bytes come and sleeps otherwise, letting messages through whatever yield is (on a
 * virtual port it looks every millisecond). -4: the port's escape character, a request to quit, or
 * ComCancel. Times are seconds, below 0 as 0; 0.1 s is added (a whole second in ComStimulusFast).
 * `maximum` is the number of kept bytes at which a call gives up: above 9999 (9900 where up to 100 bytes
 * are taken) it counts as that, below 1 as soon as an empty string would be found. A `count` below 1 waits
 * for no string, but for the time or the maximum. One call a port at a time: two would share the buffer.
 */

/* Waits for `stimulus` and sends `response`, which may be empty. 1 seen; 2 time over; 3 `maximum` bytes have
 * come; -4 escaped or cancelled; [port], also null or closed meanwhile. */
int32_t ComStimulus(int32_t port, const char *stimulus, const char *response, int32_t maximum,
                    int32_t seconds);
int32_t ComStimulusFast(int32_t port, const char *stimulus, const char *response, int32_t maximum,
                        int32_t seconds);
/* Takes what is there now, at most `maximum` bytes (9999), each NUL as a blank, and never waits. What
 * ComGetBufLen tells stays as it was. 1; 2 nothing there or the stimulus is not in it; [port], also null. */
int32_t ComStimulusImmediate(int32_t port, const char *stimulus, const char *response, int32_t maximum);
/* Waits for one of `count` strings; an empty answer sends nothing. The index of the string + 1; -1 bad or
 * closed port or a null among the strings or answers; -2 time over; -3 `maximum` bytes have come; -4
 * escaped or cancelled; -14 closed meanwhile. The arrays are the caller's to change while the call waits: a
 * string that has become null is not found, an answer that has is not sent. */
int32_t ComStimulusArray(int32_t port, const char *const *stimuli, const char *const *responses,
                         int32_t count, int32_t maximum, int32_t seconds);
/* -11 port not open, -12 bad port number, -13 a null; else as ComStimulusArray. */
int32_t ComStimulusArrayFast(int32_t port, const char *const *stimuli, const char *const *responses,
                             int32_t count, int32_t maximum, int32_t seconds);
/* The same with the first `count` strings of the port's own list and their answers, as they are when the
 * call begins. The index + 1; -1 bad port number or closed meanwhile; -10 there are not so many strings
 * (never more than 20); -11 not open; -2, -3, -4 as above. Both names are the same call. */
int32_t ComStimulusArray2(int32_t port, int32_t count, int32_t maximum, int32_t seconds);
int32_t ComStimulusArray2Fast(int32_t port, int32_t count, int32_t maximum, int32_t seconds);
/* Adds the first `length` bytes of a string to the list of strings, or of answers; 39 are kept, and none of
 * a length below 1: an entry that ComStimulusArray2 does not take for a string (-10). 1; -1 bad or closed
 * port, null, 20 already, or (not for answers) an empty string. */
int32_t ComAddStimList(int32_t port, const char *string, int32_t length);
int32_t ComAddRespList(int32_t port, const char *string, int32_t length);
/* Empties the list. 1; [port]. */
int32_t ComFreeStimList(int32_t port);
int32_t ComFreeRespList(int32_t port);

/* The match buffer, valid until the port is closed, changing while a stimulus call runs; null: not open;
 * all ones: bad port number. */
char *ComGettestbuffer(int32_t port);
/* Its text into `count` bytes, filled up with zero bytes; not terminated when it is that long. 1; [port],
 * also null. */
int32_t ComGetteststring(int32_t port, char *buffer, int32_t count);
/* Bytes in the match buffer; [port]. */
int32_t ComGetBufLen(int32_t port);
/* The value itself: an address for languages that cannot take one. */
intptr_t ComGetStringPtr(intptr_t string);

#ifdef __cplusplus
}
#endif

#endif
