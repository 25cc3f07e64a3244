/* brisolt/notifications.h: being told that data has arrived. */
#ifndef BRISOLT_NOTIFICATIONS_H
#define BRISOLT_NOTIFICATIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Tell on every round that brought data: message 0x800A (first parameter 0, second the port number) to a
 * window or to a thread (ComHostThreadId), or a call of a function on the port's I/O thread, which may
 * call anything for its port, the close included (a wait in it holds up the port). 0 or null switches it
 * off. While the ring is full and the device holds more, it is told again at the port's pace, every 5 ms
 * at most. 1; [port]. */
int32_t ComSetNotifyMessageAnyChar(int32_t port, int32_t window);
int32_t ComSetNotifyThreadMessageAnyChar(int32_t port, uint32_t thread);
int32_t ComSetNotifyMessageOnAnyCharCallBackFunc(int32_t port, ComPortFunc function);

/* The same whenever a round brought data and the unread bytes hold a character: message 0x800B. The three
 * share the character that was set last. As long as it stays unread, every further round with data tells
 * again. 1; [port]. */
int32_t ComSetNotifyMessageOnChar(int32_t port, int32_t window, uint8_t character);
int32_t ComSetNotifyThreadMessageOnChar(int32_t port, uint32_t thread, uint8_t character);
int32_t ComSetNotifyMessageOnCharCallBackFunc(int32_t port, ComPortFunc function, uint8_t character);

/* The same for a string with wildcards (ComPeekString), of which 299 characters count: message 0x800C. The
 * three share the string that was set last. An empty string (or null) switches the window off; the other
 * two refuse it with -2, and the function a string of one character, too. A refused call changes nothing,
 * but for a target of 0, which is switched off. 1; -2; [port]. */
int32_t ComSetNotifyMessageOnString(int32_t port, int32_t window, const char *string);
int32_t ComSetNotifyThreadMessageOnString(int32_t port, uint32_t thread, const char *string);
int32_t ComSetNotifyMessageOnStringCallBackFunc(int32_t port, ComPortFunc function, const char *string);

/* Of messages that are equal and still wait only one is kept, so that a thread that never looks does not
 * fill the memory. */

/* Replaces a received byte value by another while it waits to be read; enable 0 switches it off. 1;
 * [port]. */
int32_t ComReplace_Incoming_Char(int32_t port, int32_t enable, uint8_t from, uint8_t to);

#ifdef __cplusplus
}
#endif

#endif
