/* brisolt/telephony.h: calls through the host's telephony service instead of modem commands. */
#ifndef BRISOLT_TELEPHONY_H
#define BRISOLT_TELEPHONY_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The service is the module TAPI32.DLL: the file given to ComHostMapModule alone, else libtapi32.so as the
 * host's loader finds it, from the folder brisolt5 beside the library (where the one for AT modems is installed)
 * or from the library's own folder; for a program that has the static library inside, from where the build of the
 * library installs it. The module is loaded at the first call that needs it, once in the life of the process; a
 * failure to load it is final, unless the host was only short of memory or descriptors, and ComHostGetErrorText
 * tells it. Its line devices are known by name and by index from 0; the call of device i becomes port 130 + i,
 * which is then read and written like any other.
 *
 * Calls make progress on whichever thread lets messages through (ComServiceMessagePump, the waits, the
 * threads of open ports). A program that waits for a call in another way has to pump. The thread that handles
 * a message which ends a call may be busy with that for as long as the service takes to hang up. Devices do not
 * disturb each other's waits. Of the calls that nobody knows yet an offered one goes to the first armed device
 * that has none, word of another to the device that is dialling; either else to the first whose line is open.
 * What comes late about a call that has ended is nobody's. A service that asks for a request again is asked
 * 100 times more.
 *
 * Names are compared byte by byte; an empty name and null are no device's. Results that are named by number
 * only: -6 telephony is not initialised, -2 there are no devices, -3 no device has the name.
 */

/* ---- Initialisation and devices ------------------------------------------------------------------ */

/* How long a modem may take to connect or to hang up, in seconds (kept in milliseconds, at most 4294967295).
 * An initialisation sets it to 90 s unless it is 10 s to 500 s then. 1. */
int32_t ComTAPI_SetModemWaitTime(uint32_t seconds);

/*
 * Registers with the service and lists its modems: the unbroken run, from device 0, of those that are fit for
 * data calls, 75 at most. Opens port 129 as a virtual port; telephony is initialised as long as it is open.
 *   logFile  where everything that telephony does is written, the reasons of every refusal included: the
 *            debug log of port 129. Null, empty, or a path of more than 259 characters: none.
 * The number of modems, or
 *   -1 no port 129, device 0 cannot be used, another initialisation is in progress, or the service
 *      is starting
 *   -2 initialised already, or the service has no devices      -3 the service refuses, or there is none
 * After a failure at the service port 129 stays open: Com_TAPI_Shutdown before the next try. When device 0
 * cannot be used the count of devices is the service's own, and none of them has a name.
 */
int32_t ComTAPI_INIT(const char *logFile);

/* The number of devices; -1 not initialised. */
int32_t ComTAPI_GetModemCount(void);
/* Copies the name of device `index` to a buffer of 75 bytes: 1; 0 it has none, or null (the buffer is empty
 * then); -6. The entry behind the last device tells why the list ends there: "Line Unavailable", "Line
 * Unnamed", "Line Name is Empty". */
int32_t ComTAPI_GetModemName(int32_t index, char *buffer);
/* The port number of a device; -1 no such device; -6. */
int32_t ComTAPI_GetPort(const char *deviceName);

/* Closes port 129, which ends every wait for a call, and leaves the service. The ports of calls stay open:
 * ComTAPI_Disconnect still closes them, and has to before their devices can be used again. Takes some 0.5 s,
 * and some seconds for a modem that has to be hung up. 1, also when not initialised. */
int32_t Com_TAPI_Shutdown(void);

/* ---- Placing calls ------------------------------------------------------------------------------- */

/*
 * Calls a number with a device and waits until it is connected, or has failed, letting messages through.
 *   phoneNumber  at most 74 characters; a longer one is refused, never cut
 *   dialMode     "P" pulse; anything else, also null, tone
 * The port number, which is open then; -6; -2; -3; or
 *   -1 the device is connected, connecting or armed    -4 the line cannot be used; the number is null
 *      or too long
 *   -5 not connected, and nobody knows why
 * or the first cause of the failure:
 *   -10 no version of the service for it   -11 capabilities unreadable   -12 no media modes
 *   -13 the line makes no calls (the one failure with a message box)     -14 the line is in use
 *   -15 the line is not opened, or gives no messages                     -16 its status is unreadable
 *   -17 -18 -19 dialling, the parameters or the request refused          -20 no connection in time
 *   -21 -22 -23 privilege over the call    -24 busy    -25 no answer     -26 not available
 *   -27 no dial tone                       -29 cancelled
 * After a failure the call is dropped and the line closed. A call that a ComTAPI_Disconnect ends meanwhile
 * gives -20.
 */
int32_t ComTAPI_Connect(const char *deviceName, const char *phoneNumber, const char *dialMode);

/* The same on a thread of its own. 1 the thread is started; -30 there is no thread; -6, -2, -3, -1, -4 as
 * above. */
int32_t ComTAPI_Connect_Thread(const char *deviceName, const char *phoneNumber, const char *dialMode);
/* How the last threaded connect stands: 0 there was none, 101 under way, 100 connected, or its failure as
 * above; -3. Of one that was cancelled or disconnected it stays 101. */
int32_t ComTAPI_Connect_Status(const char *deviceName);

/* Cancels the device's connect, which ends with -29 soon; a connect thread then tells no result. A call that
 * is connected is hung up with its next change of state. The check of the line before it dials is not
 * interrupted, and an armed device is disarmed by ComTAPI_Disconnect, not by this. 1; -6; -2; -3. */
int32_t ComTAPI_Cancel(const char *deviceName);
/* Ends whatever the device does: the call, the wait for one, a connect. Closes its line and its port. Takes
 * some 0.7 s. Works also after Com_TAPI_Shutdown. 1; -2; -3. */
int32_t ComTAPI_Disconnect(const char *deviceName);

/* ---- Answering calls ----------------------------------------------------------------------------- */

/* Arms the device to answer the next call after `rings` rings (below 1: 1) and returns at once. 1 armed; -1
 * the device is connected, connecting or armed; -6; -2; -3; -4 the line cannot be used; -10 to -16 as above.
 * A call that fails while it is answered leaves the device armed; a modem that is pulled out meanwhile shows
 * in the log only. When it has answered it is disarmed by ComTAPI_Disconnect and armed again by another
 * ComTAPI_AutoAnswer. */
int32_t ComTAPI_AutoAnswer(const char *deviceName, int32_t rings);
/* 0 not armed, 101 armed, 102 ringing, 104 about to answer, 105 connected and the port open; -6; -3 (also
 * without devices). */
int32_t ComTAPI_GetAutoAnswerState(const char *deviceName);
/* The port that the call will have; -6; -3 as above. */
int32_t ComTAPI_GetAutoAnswer_ConnectPort(const char *deviceName);

/* ---- The port of a call -------------------------------------------------------------------------- */

/*
 * Opens a port on the communications handle of a call (on this host the descriptor of a terminal device, or a
 * handle of ComHostOpenDevice). The line settings are the device's own; rings of 16384 bytes, a pace of 200
 * ms. The calls above do this by themselves. The port number, or
 *   -1 bad port number   -2 already open   -20 to -24 memory
 *   -30 queue sizes refused, or the handle is no serial device   -33 -34 -35 the device's parity, data bits
 *   or stop bits are none that a port can have   -36 line state refused   -38 no I/O thread or no
 *   descriptor for its wake-up   -39 time-outs refused
 * After a failure the handle is still the caller's.
 */
int32_t ComTAPI_OPENPORT(int32_t port, int32_t handle);
/* ComClose, which closes the handle, too. 1; -1 bad or closed port. */
int32_t ComTAPI_CLOSEPORT(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
