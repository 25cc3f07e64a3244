/* brisolt/host_events.h: lines, errors and devices that tell. */
#ifndef BRISOLT_HOST_EVENTS_H
#define BRISOLT_HOST_EVENTS_H

#include "../brisolt_host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A changed line is told as the kernel tells it, without polling, from the first time that somebody asks for it
 * until the port is closed or its message is ended (the next ComHostWaitEvent begins anew); at once on null modems
 * and loops. A device that cannot tell (a pseudo terminal has no lines) tells what it tells: its errors and breaks
 * are seen at the next look that is taken anyway, as those of every device are. */

/* The counters of a port (ComHostCounters: all since the open). counters->size is set by the caller; a smaller
 * record gets the fields that it has. 1; -1 bad or closed port, null, or a record without its first counter. */
int32_t ComHostGetCounters(int32_t port, ComHostCounters *counters);

/* Waits until a counter of one of `events` (COM_HOST_EVENT_...) differs from *seen; those of *seen that were
 * asked for then are as they stand, the rest, and a *seen of a wait in vain, are untouched. So nothing between
 * two waits is missed, whoever else waits and for whatever. COM_HOST_EVENT_ERROR stands for the four error
 * counters. Milliseconds, below 0: no limit.
 * The events that differ; 0 none in time; -1 bad or closed port (also when it is closed meanwhile), no or
 * unknown events, null, a record too small; -3 cancelled (ComCancel); -4 the device can tell none of them; -5 a
 * signal handler ran on the calling thread. A device that goes is an event (COM_HOST_EVENT_GONE). */
int32_t ComHostWaitEvent(int32_t port, uint32_t events, ComHostCounters *seen, int32_t milliseconds);

enum { COM_HOST_MESSAGE_EVENT = 0x8010, COM_HOST_MESSAGE_DEVICES = 0x8011 };

/* From now on each of `events` posts COM_HOST_MESSAGE_EVENT (`first` the events, `second` the port) to the
 * window, or to the thread when the window is 0; both 0 ends it, whatever the events. Each port has one such
 * target, the one set last. Messages of one port that wait are kept once, with the events of all. 1; -1 bad or closed port, no or unknown events, no such window or thread. */
int32_t ComHostSetEventMessage(int32_t port, uint32_t events, int32_t window, uint32_t thread);

/* The inputs as they are now, as COM_HOST_MODEM_... bits, and the outputs as the library has set them,
 * COM_HOST_MODEM_DTR and COM_HOST_MODEM_RTS. -1 bad or closed port; -4 the device has none; -2 it is gone. */
int32_t ComHostGetLines(int32_t port);

/* ---- The devices of this machine ----------------------------------------------------------------- */

typedef struct ComHostDeviceInfo {
    uint32_t size;        /* sizeof(ComHostDeviceInfo) */
    char path[260];       /* "/dev/ttyUSB0" */
    char stablePath[260]; /* the link that stays the same (/dev/serial/by-id), "" none */
    char description[256], manufacturer[128], product[128], serialNumber[128], driver[64];
    char location[64];                            /* the socket: "1-1.2" */
    int32_t vendorId, productId, interfaceNumber; /* -1 unknown */
    int32_t holder; /* the process that has it open, as far as we may see; 0 none */
    char holderName[64];
} ComHostDeviceInfo;

/* The host's serial devices by index from 0, as ComHostGetDevice lists them; nothing is opened. info->size is set
 * by the caller; a smaller record gets the fields that it has. 1; 0 no device with that index; -1 null, or a
 * record too small for the path, or the host fails to tell (ComHostGetErrorText tells why). */
int32_t ComHostGetDeviceInfo(int32_t index, ComHostDeviceInfo *info);

/* From now on COM_HOST_MESSAGE_DEVICES is posted to the window, or to the thread when the window is 0, when a
 * serial device has come (`first` 1) or gone (0). There is one such target, the one set last; both 0 ends it.
 * 1; -1 no such window or thread, or the host cannot tell. */
int32_t ComHostSetDeviceMessage(int32_t window, uint32_t thread);

#ifdef __cplusplus
}
#endif
#endif
