/* brisolt/checked.h: everyday calls that take a port number, numbers and strings only. */
#ifndef BRISOLT_CHECKED_H
#define BRISOLT_CHECKED_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Each of these gives -1 and does nothing else for a port number outside 1 to 256, a port that is not open,
 * a null string, and a null buffer for a count above 0. Any thread may call them. */

/* ---- Opening ------------------------------------------------------------------------------------- */

/* ComOpen with device name "COM" and rings of 4096 bytes; the arguments in ComOpen's order, data bits
 * before parity. The port number; -1 also when the port is open already; other failures as of ComOpen.
 * COpen2 is the same. */
int32_t COpen(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity, int32_t stopBits);
int32_t COpen2(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity, int32_t stopBits);

/* ---- Calls that are passed on -------------------------------------------------------------------- */

/* Each calls the function whose name begins with Com in the place of C: arguments, units, results and all
 * else as described there. Closing and moving bytes (the time-out of CReadTimed in hundredths of a
 * second): */
int32_t CClose(int32_t port);
int32_t CGetc(int32_t port);
int32_t CRead(int32_t port, void *buffer, int32_t count);
int32_t CReadTimed(int32_t port, void *buffer, int32_t count, int32_t timeout);
int32_t CStatus(int32_t port);
int32_t CPutc(int32_t port, int32_t character);
int32_t CPuts(int32_t port, const char *text);
int32_t CWrite(int32_t port, void *buffer, int32_t count);
int32_t CFlush(int32_t port);
/* The line (CSetParms takes parity before data bits): */
int32_t CSetBaud(int32_t port, int32_t baudRate);
int32_t CSetParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits);
int32_t CSetPar(int32_t port, int32_t parity);
int32_t CSetBits(int32_t port, int32_t dataBits);
int32_t CSetStop(int32_t port, int32_t stopBits);
int32_t CSetFlow(int32_t port, int32_t mode);
int32_t CBreak(int32_t port);
int32_t CDTR(int32_t port);
int32_t CCarrier(int32_t port);
/* The modem: */
int32_t CDial(int32_t port, const char *number);
int32_t CDisc(int32_t port);
int32_t CReset(int32_t port);
int32_t CRing(int32_t port);
int32_t CSetAns(int32_t port, int32_t on);
/* Text transfer (the time-out of CRecvA in seconds): */
int32_t CSendA(int32_t port, const char *name);
int32_t CRecvA(int32_t port, const char *name, int32_t escape, int32_t endChar, int32_t timeout);

/* Keeps a number with the port; nothing reads it. 1. */
int32_t CBuffer(int32_t port, int32_t value);

/* ---- Single fields of the parameters ------------------------------------------------------------- */

/* The fields of ComPortParms, ComModemParms and ComAsciiParms (parameters.h), one at a time. A setter stores
 * the value unchecked and comes to the same as reading the record, changing the field and writing the record
 * back, but threads that set different fields at once do not undo each other's change. */

/* Of the line. The getters give the number. The setters give 1; each of them, whichever field it sets, then
 * applies parity, data bits and stop bits to the device as ComSetPortParms does: it waits until the device
 * has sent what it holds (half a second at most) and discards what both its queues hold. Only parity, data
 * bits and stop bits reach the device; baud rate and flow control are noted (CSetBaud and CSetFlow change
 * them). Codes that are none are noted, too, and leave the device alone. */
/* baud rate, bits per second */
int32_t CGetPortParmBaudrate(int32_t port);
int32_t CSetPortParmBaud(int32_t port, int32_t value);
/* parity: 1 none, 2 odd, 3 even, 4 mark, 5 space */
int32_t CGetPortParmParity(int32_t port);
int32_t CSetPortParmParity(int32_t port, int32_t value);
/* data bits: 4 to 8 */
int32_t CGetPortParmData_bits(int32_t port);
int32_t CSetPortParmData_bits(int32_t port, int32_t value);
/* stop bits: 1 one, 2 two, 3 one and a half */
int32_t CGetPortParmStop_bits(int32_t port);
int32_t CSetPortParmStop_bits(int32_t port, int32_t value);
/* flow control: 0 hardware, 1 software, 2 none */
int32_t CGetPortParmXflow(int32_t port);
int32_t CSetPortParmXflow(int32_t port, int32_t value);
/* sizes of the receive and the transmit buffer, bytes */
int32_t CGetPortParmIbuf(int32_t port);
int32_t CGetPortParmObuf(int32_t port);
/* seconds that ComFlush waits */
int32_t CGetPortParmFlushTime(int32_t port);
int32_t ComFlushTime(int32_t port, int32_t value);
/* lengths of a break and of a pulse of DTR, hundredths of a second */
int32_t CGetPortParmBreakTime(int32_t port);
int32_t CSetPortParmBreakTime(int32_t port, int32_t value);
int32_t CGetPortParmDTRTime(int32_t port);
int32_t CSetPortParmDTRTime(int32_t port, int32_t value);
/* nonzero: waits let messages through and watch for the escape character (ComSetYield sets this alone and
 * leaves the device in peace) */
int32_t CGetPortParmYield(int32_t port);
int32_t CSetPortParmYield(int32_t port, int32_t value);

/* Of the modem; nothing is sent. The getter of the dial time gives seconds. Those of a string copy it into a
 * buffer of 32 bytes (CGetModemInitStr: of 100), all of which is written, zeros behind the string; 1. The
 * setters cut a string to 31 characters (CSetModemInitStr: to 99); 1. */
int32_t CGetModemParmDialTime(int32_t port);
int32_t CSetModemParmDialTime(int32_t port, int32_t value);
/* dial prefix, initialisation, hang up, reset, auto-answer on and off */
int32_t CGetModemParmDialStr(int32_t port, char *buffer);
int32_t CSetModemParmDialStr(int32_t port, const char *text);
int32_t CGetModemInitStr(int32_t port, char *buffer);
int32_t CSetModemInitStr(int32_t port, const char *text);
int32_t CGetModemParmDiscStr(int32_t port, char *buffer);
int32_t CSetModemParmDiscStr(int32_t port, const char *text);
int32_t CGetModemParmResetStr(int32_t port, char *buffer);
int32_t CSetModemParmResetStr(int32_t port, const char *text);
int32_t CGetModemParmSetAA(int32_t port, char *buffer);
int32_t CSetModemParmSetAA(int32_t port, const char *text);
int32_t CGetModemParmUnsetAA(int32_t port, char *buffer);
int32_t CSetModemParmUnsetAA(int32_t port, const char *text);
/* data compression, flow control and error control, as the names say */
int32_t CGetModemParmCompression_ON(int32_t port, char *buffer);
int32_t CSetModemParmCompression_ON(int32_t port, const char *text);
int32_t CGetModemParmCompression_OFF(int32_t port, char *buffer);
int32_t CSetModemParmCompression_OFF(int32_t port, const char *text);
int32_t CGetModemParmFlowControl_OFF(int32_t port, char *buffer);
int32_t CSetModemParmFlowControl_OFF(int32_t port, const char *text);
int32_t CGetModemParmFlowControl_HDWR(int32_t port, char *buffer);
int32_t CSetModemParmFlowControl_HDWR(int32_t port, const char *text);
int32_t CGetModemParmFlowControl_SOFT(int32_t port, char *buffer);
int32_t CSetModemParmFlowControl_SOFT(int32_t port, const char *text);
int32_t CGetModemParmErrorControl_ON(int32_t port, char *buffer);
int32_t CSetModemParmErrorControl_ON(int32_t port, const char *text);
int32_t CGetModemParmErrorControl_OFF(int32_t port, char *buffer);
int32_t CSetModemParmErrorControl_OFF(int32_t port, const char *text);
int32_t CGetModemParmErrorControl_FORCED(int32_t port, char *buffer);
int32_t CSetModemParmErrorControl_FORCED(int32_t port, const char *text);

/* Of a text transfer. The getters give the number, the setters 1. */
/* nonzero: line feeds of a sent file are dropped */
int32_t CGetAsciiParmStripLF(int32_t port);
int32_t CSetAsciiParmStripLF(int32_t port, int32_t value);
/* nonzero: a line feed without a carriage return before it gets one */
int32_t CGetAsciiParmAddCR(int32_t port);
int32_t CSetAsciiParmAddCR(int32_t port, int32_t value);
/* pauses after each character and after each line, in the units of the function that sends */
int32_t CGetAsciiParmCharDelay(int32_t port);
int32_t CSetAsciiParmCharDelay(int32_t port, int32_t value);
int32_t CGetAsciiParmLineDelay(int32_t port);
int32_t CSetAsciiParmLineDelay(int32_t port, int32_t value);

/* ---- How arguments arrive ------------------------------------------------------------------------ */

/* For a caller that reaches the library from another language. They need no port. 0 when the arguments are
 * exactly 1; "ABC"; "ABC", "DEF" and "GHI"; 1, "ABC" and 3; else -1, also for a null string. Ctest: 0. */
int32_t Ctest(void);
int32_t Ctestint(int32_t value);
int32_t Cteststring(const char *text);
int32_t Ctest3string(const char *text1, const char *text2, const char *text3);
int32_t Ctest1string(int32_t value1, const char *text, int32_t value2);
/* Handles the calling thread's messages for so many seconds; below 1: returns at once. A request to quit
 * holds the messages back, but not the time. 1. */
int32_t Ctestyield(int32_t seconds);

#ifdef __cplusplus
}
#endif

#endif
