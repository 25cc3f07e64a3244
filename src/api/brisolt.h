/*
 * brisolt.h: serial ports, and what is behind them.
 *
 * A port is opened by number (1 to 256). From then on bytes move through its receive ring and its transmit
 * ring, which a thread of the port's own keeps filled and drained.
 *
 * Conventions
 *   1. Results are 32-bit signed: 1 for success or yes, a count, or a port number; 0 for nothing, no or
 *      off; -1 for a port number outside 1 to 256, a port that is not open, a null pointer where a buffer,
 *      string or position is needed, or a general failure; other negative numbers as described.
 *   2. A call that refuses changes nothing. No call crashes on a null pointer, a negative count, an odd
 *      port number or an over-long string; a text that is too long for its field is cut and terminated.
 *   3. Strings are zero-terminated 8-bit strings. Buffers belong to the caller; nothing is kept of them.
 *   4. Any thread may call any function for any port at any time, the close included, unless its
 *      description says otherwise. A close ends every wait on the port at once.
 *   5. Units differ by function and are named with each: milliseconds, hundredths and tenths of a second,
 *      seconds.
 *   6. A wait that "lets messages through" handles the calling thread's window messages meanwhile
 *      (brisolt_host.h) and watches for the port's escape character and for a request to quit.
 *   7. Results marked [port] are only these: -1 bad or closed port.
 */
#ifndef BRISOLT_H
#define BRISOLT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define BRISOLT_FORMAT(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define BRISOLT_FORMAT(text, first)
#endif

/* ---- Functions that a caller supplies ------------------------------------------------------------ */

typedef int32_t (*ComPortFunc)(int32_t port);
typedef int32_t (*ComPortValueFunc)(int32_t port, int32_t value);
typedef int32_t (*ComSetParmsFunc)(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits);
typedef int32_t (*ComReadFunc)(int32_t port, void *buffer, int32_t count);
typedef int32_t (*ComWriteFunc)(int32_t port, const void *buffer, int32_t count);
typedef int32_t (*ComEscapeFunc)(int32_t port, int32_t character);

/* ---- Records ------------------------------------------------------------------------------------- */

#pragma pack(push, 1)
/* Progress of a file transfer on a port; its address comes from ComGetShow. 572 bytes, no gaps. */
typedef struct ComShowRecord {
    char name[260];
    uint16_t state;
    uint32_t bytes;
    uint32_t packets;
    uint32_t total;
    uint16_t size;
    uint16_t errors;
    uint32_t errorNo;
    uint8_t reserved[18];
    char targetFileName[260];
    uint32_t targetEnabled;
    uint32_t modTime;
    uint32_t fileCompletionState;
} ComShowRecord;
#pragma pack(pop)

/* ---- Tracked memory ------------------------------------------------------------------------------ */

/* The address of a port's record, or null for a bad port or a port that is not open. The record is the
 * library's own; it lives until the port is closed. */
void *ComPidtoP(int32_t port);

/* Forgets a port's tracked blocks without releasing them; for a pool known to be empty. */
void ComInitMalloc(int32_t port);

/* `size` zero-filled bytes that the port's close will release at the latest (the port need not be open
 * yet). Null for a bad port or when memory is short. */
void *ComMalloc(int32_t port, uint32_t size);

/* Releases a block of ComMalloc. 0; 0 also for null; -1 bad port, empty pool, or an address that is not in
 * this port's pool. */
int32_t ComFree(int32_t port, void *address);

/* Releases every block of the port's pool. 1; -1 bad port. */
int32_t ComFreeAll(int32_t port);

/* ---- Opening and closing ------------------------------------------------------------------------- */

/*
 * Opens the serial device of `port`: the path given to ComHostMapDevice, else /dev/comN, else
 * /dev/ttyS(N-1). The device is opened for this port alone.
 *   deviceName  kept for the logs (31 characters); exactly "THUNK" opens a port without an I/O thread
 *               (direct mode: every read, write and status call moves the bytes itself). Null: empty.
 *   baudRate    bits per second; any rate the device takes
 *   dataBits    4 to 8       parity  1 none, 2 odd, 3 even, 4 mark, 5 space
 *   stopBits    1 one, 2 two, 3 one and a half
 *   rxBufSize, txBufSize     ring sizes in bytes; below 2048: 2048
 * The port starts without flow control, DTR and RTS raised, with a pace of 50 ms between rounds.
 * Returns the port number, or
 *   -1 bad port number           -2 already open            -20 to -24 memory
 *   -25 device not opened (ComHostGetErrorText tells why)   -27 event mask refused
 *   -29 no event                 -30 queue sizes refused    -33 bad parity
 *   -34 bad data bits            -35 bad stop bits          -36 line state refused by the device
 *   -38 no I/O thread            -39 time-outs refused
 */
int32_t ComOpen(const char *deviceName, int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize);

/* Opens a port on a device handle that the caller holds and keeps: a handle of ComHostOpenDevice or any
 * descriptor of a terminal device. Arguments as for ComOpen; the pace is 200 ms. Differences in results:
 * -25 invalid handle (all ones), or a handle that is no serial device; -26 properties unreadable; -32 baud
 * rate above the device's maximum; -33 only on devices that check parity; -34 also for 8 data bits with
 * parity. After -33, -35 and a -34 for data bits outside 4 to 8 the handle is closed; after all other
 * failures it stays the caller's. "THUNK" gives direct mode only on hosts of platform identifier 1, which
 * this is not. */
int32_t ComPreOpen(const char *deviceName, int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                   int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize, int32_t deviceHandle);

/* ComPreOpen with device name "COM" and rings of 4096 bytes. */
int32_t CPreOpen(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity, int32_t stopBits,
                 int32_t deviceHandle);

/* Closes a port: stops its thread (at most some 5 s when it is held up), lowers DTR, closes the device,
 * restores the settings the device had, releases all memory of the port. Takes some 0.6 s, in direct mode
 * 5.6 s. A write or wait in progress ends at once. Of a port of ComPreOpen it closes the caller's handle
 * too. May be called from a notification function of the port; then, and when some function of the
 * caller's is still running inside the port, the device is closed when that function has returned, and can
 * be opened again only after that. 1; -1 not open, or another thread is closing it. */
int32_t ComClose(int32_t port);
/* The same for a port of ComPreOpen: DTR, the line settings and the caller's handle are left as they are. A
 * port of ComOpen has its device closed all the same. */
int32_t ComPreClose(int32_t port);

/* 1 the port is open, else 0 (also for a bad port number). */
int32_t ComOpenState(int32_t port);
/* The device handle of an open port (on this host a descriptor), -1. That of a port of ComOpen belongs to
 * the library. */
int32_t ComPortdcb(int32_t port);

/* ---- Control lines and flow control -------------------------------------------------------------- */

/* Flow control: 0 RTS/CTS, 1 XON/XOFF, 2 none, 3 DTR/DSR, 4 RTS/CTS and DTR/DSR, 5 XON/XOFF and DTR/DSR.
 * Discards what the device's queues hold and raises DTR and RTS. 1 (whatever the device answers); -1 bad
 * or closed port, or unknown mode. */
int32_t ComSetFlow(int32_t port, int32_t mode);
/* Raise a line. 1; -1 bad port number; -11 port not open; -2 the device refuses (it has no such line). */
int32_t ComSetDTR(int32_t port);
int32_t ComSetRTS(int32_t port);
/* Lower a line. 1; -1 bad or closed port; -2 the device refuses. */
int32_t ComClearDTR(int32_t port);
int32_t ComClearRTS(int32_t port);

/* ---- The I/O thread and the port trace ----------------------------------------------------------- */

/* These give 0 when the port is bad or not open, else 1 unless said otherwise. */

/* Priority of the port's thread: 1 lowest, 4 below normal, 5 normal, 6 above normal, 9 highest, 10 time
 * critical; any other level normal. As far as the host allows. */
int32_t ComSetBackgroundPriority(int32_t port, int32_t level);
/* The pace: the least pause between two rounds of the port's thread, in milliseconds, at most 10000. With
 * 0 every byte moves at once. A thread with nothing to do sleeps whatever the pace. */
int32_t ComSetBackgroundTimeout(int32_t port, uint32_t milliseconds);
/* The tick count (milliseconds) at which the port was opened. */
int32_t ComStartupTime(int32_t port);
/* Holds the port's thread back until ComResume, at most for about 500 ms. */
int32_t ComSuspend(int32_t port);
int32_t ComResume(int32_t port);
/* Whether ComWrite may write straight to the device while the transmit ring is empty. */
int32_t ComSuspendPortWriteThru(int32_t port);
int32_t ComResumePortWriteThru(int32_t port);
/* Size of the transmit ring in bytes. */
int32_t ComOutBufSize(int32_t port);

/* Switches the port's trace file on (a path of at most 259 characters; a longer one is refused) or off
 * (null or empty). The trace tells every device read and write with its bytes in hex. An existing file is
 * kept and gets a new header. 1, also when the file cannot be made (entries then
 * appear once it exists); -1 also for a longer path. */
int32_t ComSetPortDebugFile(int32_t port, const char *path);

/* ---- Reading ------------------------------------------------------------------------------------- */

/* Takes up to `count` bytes out of the receive ring; never waits. Bytes copied, 0 none (or count below 1);
 * [port]. */
int32_t ComRead(int32_t port, void *buffer, int32_t count);
/* One byte (0 to 255), -1 none or bad or closed port. */
int32_t ComGetc(int32_t port);
/* Waits until `count` bytes are there and reads them; when the time is over, reads what there is.
 * `timeout` in hundredths of a second; below 11: 1000 (10 s). Lets messages through; neither escape, quit
 * nor cancel ends it. A count above the ring's size waits for the whole time. Bytes read; -1 bad or closed
 * port, also when it is closed meanwhile. */
int32_t ComReadTimed(int32_t port, void *buffer, int32_t count, int32_t timeout);
/* Reads until `maximum` bytes (result 1), the byte `terminator` (2; it is stored), or the time (3; seconds
 * plus 0.1 s). `buffer` must hold maximum + 1 bytes and is terminated with a zero byte. 4: escaped
 * (terminated) or cancelled (not terminated). -1: bad or closed port, also when closed meanwhile,
 * terminator below 0, maximum below 0, time-out below 1. A terminator above 255 never comes. A maximum of
 * 0 is full at once. Whatever yield is, messages are let through; a quit request counts as an escape. */
int32_t ComReadBuf(int32_t port, void *buffer, int32_t terminator, int32_t maximum, int32_t timeout);
/* Collects until nothing has come for `quiet` tenths of a second, or size - 1 bytes are there; puts a zero
 * byte behind them. Bytes read; -1 bad or closed port (also closed meanwhile), quiet below 1, size below
 * 1, the escape key (27), a quit request or a cancel. Messages are let through whatever yield is. */
int32_t ComReadBufToQuiet(int32_t port, void *buffer, int32_t size, int32_t quiet);
/* Reads what is there, up to and including the byte `terminator` (its low 8 bits) or maximum + 1 bytes.
 * Not terminated. Never waits. Bytes read; [port]. */
int32_t ComReadBufToEmpty(int32_t port, void *buffer, int32_t terminator, int32_t maximum);
/* Bytes waiting in the receive ring; on an empty ring takes what the device holds. Count; [port]. */
int32_t ComStatus(int32_t port);

/* ---- Writing ------------------------------------------------------------------------------------- */

/* Sends `count` bytes: straight to the device when nothing is queued and it has room, else into the
 * transmit ring. Never waits for room in the ring; straight to the device it waits until the line has
 * taken the bytes, at most for the write time-out (lossless ports never wait, ComHostSetLossless). With
 * scrambling on, the caller's buffer is changed. Bytes taken (0 when none, or count below 1); [port]. */
int32_t ComWrite(int32_t port, void *buffer, int32_t count);
/* Sends the low 8 bits of `value`. As ComWrite. */
int32_t ComPutc(int32_t port, int32_t value);
/* Sends a string; `|` sends a carriage return, `~` pauses one second (letting messages through when yield
 * is set; a quit request cuts the pause short). Bytes that find no room are lost. 1; -1 bad or closed
 * port, also when it is closed meanwhile, or null. */
int32_t ComPuts(int32_t port, const char *string);
/* Bytes not yet sent: in the transmit ring and in the device. Count; [port]. */
int32_t ComOutBufStatus(int32_t port);

/* Discards received data, in the ring and in the device, after a wait: of the port's flush delay (1 s
 * after an open), or of `seconds`. With yield on, the wait lets messages through and a quit request cuts
 * it short. 1; -1 bad or closed port, also when it is closed meanwhile. */
int32_t ComFlush(int32_t port);
int32_t Com_Flush(int32_t port, int32_t seconds);
/* Discards data not yet sent, in the ring and in the device. 1; [port]. */
int32_t ComFlushOutBuf(int32_t port);
/* Waits until the device has sent what it was given, at most for the write time-out. Nonzero success, 0
 * not all sent; [port]. */
int32_t ComFlushImmediate(int32_t port);
/* How long a device write may take, in milliseconds (2000 after ComOpen, no limit after ComPreOpen); 0 or
 * all ones: no limit. 1; [port]. */
int32_t ComSetWriteTimeout(int32_t port, uint32_t milliseconds);
/* Largest block of one device write, clamped to 1 to 1200 (1024 after an open). 1; [port]. */
int32_t ComSetPortMaxWriteChars(int32_t port, int32_t count);
/* enable 1 or more: a byte with a parity error is replaced by `replacement` (its low 8 bits); below 1:
 * off. Until the next change of the line settings. 1; -1 also when the device refuses. */
int32_t ComSetLineErrorReplacement(int32_t port, int32_t enable, int32_t replacement);
/* Line errors since the last call (COM_HOST_ERROR_... of brisolt_host.h), then cleared; [port]. */
int32_t ComGetLineError(int32_t port);

/* ---- Waiting, escape and cancel ------------------------------------------------------------------ */

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
/* The port's progress record, null for a bad or closed port. It lives until the port is closed. */
ComShowRecord *ComGetShow(int32_t port);
/* Does nothing. 1. */
int32_t ComTiming(void);
/* Does nothing. */
void _chkerror(int32_t value);

/* ---- Notifications on received data -------------------------------------------------------------- */

/* Tell on every round that brought data: message 0x800A (first parameter 0, second the port number) to a
 * window or to a thread (ComHostThreadId), or a call of a function on the port's I/O thread, which may
 * call anything for its port, the close included (a wait in it holds up the port). 0 or null switches it
 * off. While the ring is full and the device holds more, it is told again at the port's pace, every 5 ms
 * at most. 1; [port]. */
int32_t ComSetNotifyMessageAnyChar(int32_t port, int32_t window);
int32_t ComSetNotifyThreadMessageAnyChar(int32_t port, uint32_t thread);
int32_t ComSetNotifyMessageOnAnyCharCallBackFunc(int32_t port, ComPortFunc function);

/* ---- Debug, protocol and verify log files -------------------------------------------------------- */

/* Each open port may carry three more log files. The setters switch a log on (a path of at most 259
 * characters; a longer one is refused with -1) or off (null or empty) and write a header with the title
 * (null: empty). 1; -1 bad or closed port; -2 the file cannot be opened (the log stays on and later
 * entries try again). */
int32_t ComSetDebugFile(int32_t port, const char *path, const char *title);
int32_t ComSetProtocolDebugFile(int32_t port, const char *path, const char *protocolName);
int32_t ComSetDebugVerifyFile(int32_t port, const char *path, const char *title);

/* The writers add one stamped entry. 1 written; 0 that log is off; -1 bad or closed port, a null text, or
 * null bytes; -2 the file cannot be opened or written. Formatted entries are cut at 1023 characters. */
int32_t ComWriteDebugFile(int32_t port, const char *format, ...) BRISOLT_FORMAT(2, 3);
int32_t ComWriteDebugFileString(int32_t port, const char *text);
/* The text starts on a line of its own. */
int32_t ComWriteDebugFileStringLF(int32_t port, const char *text);
/* A line break and the text, no stamp. */
int32_t ComWriteDebugFileStringNL(int32_t port, const char *text);
/* Bytes in hex, at most 500. */
int32_t ComWriteDebugFileStringHEX(int32_t port, const void *bytes, int32_t length);
/* These two write to the debug file: a text cut at 1023 characters; bytes as characters and hex, at most
 * 750. */
int32_t ComWriteDebugVerifyFileString(int32_t port, const char *text);
int32_t ComWriteDebugVerifyFileStringHEX(int32_t port, const void *bytes, int32_t length);
/* To the verify file. */
int32_t ComWriteDebugVerifyFile(int32_t port, const char *format, ...) BRISOLT_FORMAT(2, 3);
/* To the protocol file. */
int32_t ComWriteProtocolDebugFile(int32_t port, const char *format, ...) BRISOLT_FORMAT(2, 3);
int32_t ComWriteProtocolDebugFileString(int32_t port, const char *text);
/* Bytes in hex, at most 1600, the entry cut at 1023 characters. */
int32_t ComWriteProtocolDebugFileStringHEX(int32_t port, const void *bytes, int32_t length);

/* ---- Time, hex and process helpers --------------------------------------------------------------- */

/* Local time as hh:mm:ss and local date as mm/dd/yy into 9 bytes. 1; -1 null. */
int32_t ComGetTime(char *buffer);
int32_t ComGetSystemTime(char *buffer);
int32_t ComGetDate(char *buffer);
int32_t ComGetSystemDate(char *buffer);
/* A byte as two lower-case hex digits into 3 bytes. 1; -1 null. */
int32_t ComConvertBytetoHEXASCII(uint8_t value, char *buffer);
/* The value of one or two hex digits; only 0 to 9 and A to F count, any other character is a digit 0. An
 * empty text gives 0. 0 to 255; -1 null. */
int32_t ComConvertHEXASCIItoByte(const char *text);
/* Starts a program with up to two arguments (a null one ends the list) and does not wait for it. 1,
 * whether or not it started. */
int32_t ComSystem(const char *program, const char *argument1, const char *argument2);
/* Runs a command line through the command interpreter and waits; the result of the runtime library's
 * system function. */
int32_t ComSys(const char *commandLine);
/* Flushes every buffered output stream of the process; one that another thread is reading from holds it up
 * for a moment only. 1. */
int32_t ComFlushAll(void);

#ifdef __cplusplus
}
#endif
#endif
