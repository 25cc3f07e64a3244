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

#ifdef __cplusplus
}
#endif

#endif
