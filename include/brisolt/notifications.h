/* brisolt/notifications.h: being told that data has arrived. */
#ifndef BRISOLT_NOTIFICATIONS_H
#define BRISOLT_NOTIFICATIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A window, a thread (ComHostThreadId) or a function can each be told of any data, of a character, and of
 * a string among the unread bytes. A window or thread gets a message with first parameter 0 and second the
 * port number. A function is called on the port's I/O thread and may do anything with its port, the close
 * included (a wait in it holds up the port). 0 or null switches a target off; all are off after an open.
 *
 * They are told after every round of the I/O thread that brought data, in this order: any data, character,
 * string, and of each function, window, thread. Each target has its own look at the unread bytes, all of
 * them: what stays unread is told of again after every further round with data. While the ring is full and
 * the device holds more, it is told again at the port's pace, every 5 ms at most. Bytes that ComStatus or a
 * peek fetches itself, since the ring was empty, are told of with the next round that brings data. A port
 * in direct mode and a virtual port have no such thread and tell nobody.
 *
 * Of equal messages that wait only one is kept, and a full queue (COM_HOST_QUEUE_LIMIT) takes none: a
 * thread that never looks costs no memory. One that looks again reads all there is, whatever the number of
 * messages; the next comes with the next round that brings data.
 */

enum { COM_MESSAGE_ANY_CHAR = 0x800A, COM_MESSAGE_ON_CHAR = 0x800B, COM_MESSAGE_ON_STRING = 0x800C };

/* Of any data: message 0x800A. 1; [port]. */
int32_t ComSetNotifyMessageAnyChar(int32_t port, int32_t window);
int32_t ComSetNotifyThreadMessageAnyChar(int32_t port, uint32_t thread);
int32_t ComSetNotifyMessageOnAnyCharCallBackFunc(int32_t port, ComPortFunc function);

/* Of a character: message 0x800B. The three share the character that was set last. 1; [port]. */
int32_t ComSetNotifyMessageOnChar(int32_t port, int32_t window, uint8_t character);
int32_t ComSetNotifyThreadMessageOnChar(int32_t port, uint32_t thread, uint8_t character);
int32_t ComSetNotifyMessageOnCharCallBackFunc(int32_t port, ComPortFunc function, uint8_t character);

/* Of a string with wildcards (ComPeekString), of which 299 characters count: message 0x800C. The three
 * share the string that was set last. An empty string (or null) switches the window off; the other two
 * refuse it with -2, and the function a string of one character, too. A refused call changes nothing, but
 * for a target of 0, which is switched off. 1; -2; [port]. */
int32_t ComSetNotifyMessageOnString(int32_t port, int32_t window, const char *string);
int32_t ComSetNotifyThreadMessageOnString(int32_t port, uint32_t thread, const char *string);
int32_t ComSetNotifyMessageOnStringCallBackFunc(int32_t port, ComPortFunc function, const char *string);

/* Replaces a received byte value by another while it waits to be read, before anybody is told of it;
 * enable 0 switches it off. 1; [port]. */
int32_t ComReplace_Incoming_Char(int32_t port, int32_t enable, uint8_t from, uint8_t to);

#ifdef __cplusplus
}
#endif

#endif
