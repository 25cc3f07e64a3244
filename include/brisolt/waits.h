/* brisolt/waits.h: waiting, escape and cancel. */
#ifndef BRISOLT_WAITS_H
#define BRISOLT_WAITS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Handles the calling thread's messages and tells whether the escape character `character` (low 8 bits)
 * was typed. 1 escape, quit requested, or the port closed while looking; 0 no; -1 bad or closed port. */
int32_t ComEscape(int32_t port, int32_t character);
/* Handles the calling thread's messages. 1 quit requested, 0 queue empty. */
int32_t ComServiceMessagePump(void);
/* Sleep; with the port's yield on (the default) messages are let through. 1 slept; -1 escape or quit, bad
 * or closed port, also when closed meanwhile. A time below 1 returns 1 at once. */
int32_t ComSleep(int32_t port, int32_t seconds);
int32_t ComSleepMS(int32_t port, int32_t milliseconds);
/* Ends the cancellable operation that runs on the port, with that operation's cancel result. Without one
 * running it is forgotten by the next that starts. 1; [port]. */
int32_t ComCancel(int32_t port);
/* The escape character that waits on the port watch for (low 8 bits; 0 after an open). 1; [port]. The
 * character, 0 bad or closed port. */
int32_t ComPortSetEscapeChar(int32_t port, int32_t character);
int32_t ComPortGetEscapeChar(int32_t port);
/* Nonzero (the default): waits let messages through and watch for the escape character. 1; [port]. */
int32_t ComSetYield(int32_t port, int32_t value);
/* Does nothing. 1. */
int32_t ComTiming(void);
/* Does nothing. */
void _chkerror(int32_t value);

#ifdef __cplusplus
}
#endif

#endif
