/*
 * brisolt_host.h: what the library needs from its host, and what a program may tell it about it.
 *
 * Conventions
 *   1. Results are 32-bit signed: 1 (or a count, or a handle above 0) for success, 0 for nothing, -1
 *      for failure. A call that fails changes nothing; ComHostGetErrorText tells why a device
 *      or a file was refused.
 *   2. Strings are zero-terminated 8-bit strings. A text that does not fit the caller's buffer is cut
 *      and terminated. Null pointers are refused.
 *   3. Records that may grow begin with their own size, set by whoever makes them.
 *   4. Any thread may call any of these functions at any time unless its description says otherwise.
 *   5. Signals: the library's threads block all signals, so handlers run on the program's own threads; the calls
 *      of brisolt/host_exchange.h and ComHostWaitEvent end with -5 when one runs during their wait, all others go
 *      on. A call that goes on in steps holds signals back between its sleeps, so that none is missed: a handler
 *      runs in a sleep of the call or at its end (not on a device of the program's own driver, whose sleeps would
 *      let none in). The first time that somebody asks for line events of a tty, the highest real-time signal that
 *      the program has left alone gets a handler that does nothing.
 *   6. Fork: a child that runs another program keeps nothing. A child that goes on by itself has its devices closed
 *      at once, so that it holds no device, line or lock; its parent's ports are closed ports to it, and it may open
 *      its own, which ComHostOpen gives numbers that none of its parent's had.
 */
#ifndef BRISOLT_HOST_H
#define BRISOLT_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Which device a port opens ------------------------------------------------------------------- */

/*
 * Two schemes need no hardware:
 *   null-modem:NAME   the first open gets one end of a null-modem cable inside the process, the second the
 *                     other: TX and RX, RTS and CTS, DTR and DSR with carrier are crossed. A third is refused.
 *   loop:NAME         a port that hears itself: TX is its RX, RTS its CTS, DTR its DSR and carrier. A second
 *                     open is refused.
 * Names are compared with letter case. With ?paced behind the name a byte takes the time that it takes on a
 * line of that rate, with ?autobaud an end of a null modem is framed as its peer is. Without flow control what
 * finds the receiver's queue full (4096 bytes and more) is dropped and counts as an overflow, as on a UART.
 */

/* Sets the path that ComOpen of `port` (1 to 256) opens: a device file, or SCHEME:REST for a registered
 * driver, for example "null-modem:bench". Null or empty: the default again (/dev/comN where it exists,
 * else /dev/ttyS(N-1)). Takes effect at the next open. 1; -1 port number outside 1 to 256, or a path of
 * 260 bytes or more. */
int32_t ComHostMapDevice(int32_t port, const char *path);

/* Copies the path that ComOpen of `port` would open now into `buffer` of `size` bytes. Returns the
 * length of the whole path (the copy is cut to size - 1 bytes); -1 bad port, null buffer, size below 1. */
int32_t ComHostGetDevicePath(int32_t port, char *buffer, int32_t size);

/* The host's serial devices by index from 0, sorted by path: path and a description for people
 * (driver, product, serial number). Listing opens no device. Either buffer may be null. 1; 0 when there
 * is no device with that index; -1 when the host fails to tell (ComHostGetErrorText tells why). */
int32_t ComHostGetDevice(int32_t index, char *path, int32_t pathSize, char *description,
                         int32_t descriptionSize);

/* The calling thread's last failure of the host: what was tried, on which path, why, and, where the
 * host tells, who holds the device or which group may open it. Returns the text's length, 0 when
 * nothing has failed on this thread yet, -1 for a null buffer or a size below 1. */
int32_t ComHostGetErrorText(char *buffer, int32_t size);

/*
 * Debug output: the library tells in lines of text what the host has refused, and which thread of a port has
 * started, where the environment variable BRISOLT_DEBUG_OUTPUT says:
 *   syslog      the system log (facility user, level debug)
 *   stderr      the program's standard error
 *   a path      the end of that file, which is made when it is missing
 * Unset or empty: nothing is written anywhere. The variable is looked at once, with the first line there is;
 * a path that is not absolute starts at the directory that is current then. It does not count in a program
 * that runs with rights its user has not. A line that cannot be written, or not without waiting, is lost, and
 * the program hears nothing of it.
 */

/* Opens a device by path or name ("COM3", "/dev/ttyUSB0", "null-modem:x") and hands out its handle for
 * ComPreOpen, to one port at a time. On this host the handle of a tty is its file descriptor; with "keep" in the
 * path, when the device may come back as another, it is a descriptor that stands for it and carries no bytes.
 * Handle (0 or above), -1. */
int32_t ComHostOpenDevice(const char *path);

/* Closes a handle of ComHostOpenDevice. A port that has adopted it keeps working until that port is
 * closed. 1; -1 when the handle is not one of ComHostOpenDevice or is closed already. */
int32_t ComHostCloseDevice(int32_t handle);

/* ---- Device drivers ------------------------------------------------------------------------------ */

/* Line state: how the line is framed and how it is held off. */
typedef struct ComHostLineState {
    uint32_t size; /* sizeof(ComHostLineState) */
    uint32_t baudRate;
    uint32_t flags; /* COM_HOST_LINE_... */
    uint16_t xonLimit, xoffLimit;
    uint8_t dataBits; /* 4 to 8 */
    uint8_t parity;   /* COM_HOST_PARITY_... */
    uint8_t stopBits; /* COM_HOST_STOP_... */
    uint8_t xonChar, xoffChar, errorChar, eofChar, eventChar;
} ComHostLineState;

enum {
    COM_HOST_LINE_BINARY = 0x0001,
    COM_HOST_LINE_PARITY_CHECK = 0x0002,
    COM_HOST_LINE_CTS_OUTPUT = 0x0004,      /* CTS low holds output off */
    COM_HOST_LINE_DSR_OUTPUT = 0x0008,      /* DSR low holds output off */
    COM_HOST_LINE_DTR_ON = 0x0010,          /* DTR raised while the device is open */
    COM_HOST_LINE_DTR_HANDSHAKE = 0x0020,   /* DTR holds the peer off when input fills up */
    COM_HOST_LINE_DSR_SENSITIVITY = 0x0040, /* bytes that arrive while DSR is low are ignored */
    COM_HOST_LINE_SEND_AFTER_XOFF = 0x0080,
    COM_HOST_LINE_XON_OUTPUT = 0x0100,    /* XOFF received holds output off */
    COM_HOST_LINE_XON_INPUT = 0x0200,     /* XOFF is sent when input fills up */
    COM_HOST_LINE_ERROR_REPLACE = 0x0400, /* errorChar stands for a byte with a parity error */
    COM_HOST_LINE_NULL_STRIP = 0x0800,
    COM_HOST_LINE_RTS_ON = 0x1000,        /* RTS raised while the device is open */
    COM_HOST_LINE_RTS_HANDSHAKE = 0x2000, /* RTS holds the peer off when input fills up */
    COM_HOST_LINE_ABORT_ON_ERROR = 0x4000
};
enum {
    COM_HOST_PARITY_NONE = 0,
    COM_HOST_PARITY_ODD = 1,
    COM_HOST_PARITY_EVEN = 2,
    COM_HOST_PARITY_MARK = 3,
    COM_HOST_PARITY_SPACE = 4
};
enum { COM_HOST_STOP_1 = 0, COM_HOST_STOP_1_5 = 1, COM_HOST_STOP_2 = 2 };

/* What a device can do. */
typedef struct ComHostProperties {
    uint32_t size; /* sizeof(ComHostProperties) */
    uint32_t packetLength, packetVersion, serviceMask;
    uint32_t maxTxQueue, maxRxQueue; /* 0: no limit */
    uint32_t maxBaud;                /* the highest baud rate */
    uint32_t provSubType;
    uint32_t provCapabilities; /* COM_HOST_CAN_... */
    uint32_t settableParams, settableBaud;
} ComHostProperties;

enum { COM_HOST_CAN_PARITY_CHECK = 0x0008 };

/* Time-outs in milliseconds, as a device keeps them. A read interval of all ones with both other read
 * values 0: a read returns at once with what is there. A write constant of all ones, or both write values
 * 0: no limit. */
typedef struct ComHostTimeouts {
    uint32_t size; /* sizeof(ComHostTimeouts) */
    uint32_t readInterval, readMultiplier, readConstant, writeMultiplier, writeConstant;
} ComHostTimeouts;

/* Answer of a status read. A driver fills what `wanted` names and may fill more. */
typedef struct ComHostStatus {
    uint32_t size;     /* sizeof(ComHostStatus) */
    uint32_t errors;   /* COM_HOST_ERROR_... pending since the last read, cleared by reading them */
    uint32_t inQueue;  /* bytes the device holds for reading */
    uint32_t outQueue; /* bytes the device has taken and not yet put on the line */
} ComHostStatus;

enum { COM_HOST_WANT_ERRORS = 1, COM_HOST_WANT_IN = 2, COM_HOST_WANT_OUT = 4 };
enum {
    COM_HOST_ERROR_RX_OVERFLOW = 0x0001, /* the device's input queue was full */
    COM_HOST_ERROR_OVERRUN = 0x0002,
    COM_HOST_ERROR_PARITY = 0x0004,
    COM_HOST_ERROR_FRAMING = 0x0008,
    COM_HOST_ERROR_BREAK = 0x0010
};
enum {
    COM_HOST_EVENT_CTS = 0x0008,
    COM_HOST_EVENT_DSR = 0x0010,
    COM_HOST_EVENT_CARRIER = 0x0020,
    COM_HOST_EVENT_BREAK = 0x0040,
    COM_HOST_EVENT_ERROR = 0x0080, /* framing, parity, overrun, overflow */
    COM_HOST_EVENT_RING = 0x0100,
    COM_HOST_EVENT_GONE = 0x1000, /* the device went */
    COM_HOST_EVENT_BACK = 0x2000  /* and came back */
};

/* How often things have happened. */
typedef struct ComHostCounters {
    uint32_t size;                    /* sizeof(ComHostCounters) */
    uint32_t cts, dsr, carrier, ring; /* changes of a line; ring: rings that ended */
    uint32_t breaks, framing, parity; /* received with an error; breaks received */
    uint32_t overrun, overflow;       /* bytes lost by the device, by its input queue */
    uint32_t gone, back;              /* how often the device went and came back */
    uint64_t received, sent;          /* bytes that came from and went to the device */
} ComHostCounters;
enum {
    COM_HOST_PURGE_TX_ABORT = 1,
    COM_HOST_PURGE_RX_ABORT = 2,
    COM_HOST_PURGE_TX = 4,
    COM_HOST_PURGE_RX = 8
};
/* Functions of `line`. */
enum {
    COM_HOST_LINE_RESUME = 2, /* send on as if XON had been received */
    COM_HOST_LINE_SET_RTS = 3,
    COM_HOST_LINE_CLEAR_RTS = 4,
    COM_HOST_LINE_SET_DTR = 5,
    COM_HOST_LINE_CLEAR_DTR = 6,
    COM_HOST_LINE_SET_BREAK = 8,
    COM_HOST_LINE_CLEAR_BREAK = 9
};
/* Modem-status lines; the first two are outputs (ComHostGetLines). */
enum {
    COM_HOST_MODEM_DTR = 0x01,
    COM_HOST_MODEM_RTS = 0x02,
    COM_HOST_MODEM_CTS = 0x10,
    COM_HOST_MODEM_DSR = 0x20,
    COM_HOST_MODEM_RING = 0x40,
    COM_HOST_MODEM_CARRIER = 0x80
};
/* Where a device is (ComHostGetPortState). */
enum {
    COM_HOST_DEVICE_THERE = 1,
    COM_HOST_DEVICE_GONE = 2,
    COM_HOST_DEVICE_SOUGHT = 3 /* gone, and being looked for */
};
enum { COM_HOST_WAIT_READ = 1, COM_HOST_WAIT_WRITE = 2 };
enum {
    COM_HOST_WRITE_COMPLETE = 0, /* done when the line has taken the bytes, or the write time-out is over */
    COM_HOST_WRITE_NOW = 1       /* takes what fits at once and does not wait */
};

/*
 * A device driver. The library calls every function with the `device` that open or adopt stored; a null
 * function means that the device cannot do it, a null setter that there is nothing to set (open, close, read
 * and write must be there; ComPreOpen wants properties too). Results are
 * 1 for success and a negative host error number (-errno on this host) for failure unless said
 * otherwise. Several threads may be inside one device at the same time; close comes last, alone.
 */
typedef struct ComHostDriver {
    uint32_t size; /* sizeof(ComHostDriver) */
    void *context; /* handed to open and adopt as it stands */

    /* Opens `path` (whole, its scheme included) for the library alone. Stores the device and the handle
     * that ComPortdcb shows (0 or above). */
    int32_t (*open)(void *context, const char *path, void **device, int32_t *handle);
    /* Takes over a handle that the caller opened elsewhere and keeps, when it is one of this driver's. Asked
     * for handles that are neither a terminal's nor of ComHostOpenDevice. */
    int32_t (*adopt)(void *context, int32_t handle, void **device);
    /* The end of a device. An adopted handle is left open. */
    void (*close)(void *device);
    int32_t (*properties)(void *device, ComHostProperties *properties);
    int32_t (*getLineState)(void *device, ComHostLineState *state);
    int32_t (*setLineState)(void *device, const ComHostLineState *state);
    int32_t (*getTimeouts)(void *device, ComHostTimeouts *timeouts);
    int32_t (*setTimeouts)(void *device, const ComHostTimeouts *timeouts);
    int32_t (*setQueues)(void *device, uint32_t inSize, uint32_t outSize);
    int32_t (*setEventMask)(void *device, uint32_t events);
    int32_t (*purge)(void *device, uint32_t what);
    int32_t (*line)(void *device, uint32_t function);
    int32_t (*modemStatus)(void *device, uint32_t *lines);
    int32_t (*status)(void *device, uint32_t wanted, ComHostStatus *status);
    /* Reads at most `count` bytes that are there now; never waits. Bytes read, 0 none. */
    int32_t (*read)(void *device, void *buffer, int32_t count);
    /* Writes as `how` says. Returns the bytes that went to the line or are sure to (0 or above); when
     * fewer than `count`, *error holds why: a positive host error number (that of a time-out when the time
     * is over), or 0 when there was no room. What a complete write could not
     * deliver in time is not delivered later. A purge with COM_HOST_PURGE_TX_ABORT ends one that
     * waits; what was thrown away then does not count as written. */
    int32_t (*write)(void *device, const void *buffer, int32_t count, uint32_t how, int32_t *error);
    /* Waits until everything written has left, at most for the write time-out. */
    int32_t (*flush)(void *device);
    /* Waits until one of `events` (COM_HOST_WAIT_...) holds, the descriptor `wake` is readable, or
     * `milliseconds` of real time have passed (-1: no limit; 0: looks and returns). Returns the events
     * that hold, 0 none (-EINTR also when a signal handler has run meanwhile, which ends it). Without this function
     * the library looks at the device again and again: its thread at the port's pace (5 ms at least), a caller that
     * waits for bytes every millisecond. A device that has gone away waits like one on which nothing happens. */
    int32_t (*wait)(void *device, uint32_t events, int32_t wake, int32_t milliseconds);
    /* on 1: from now on no write or flush of this device waits; those that wait return at once (a wait is
     * ended through its wake descriptor). on 0: they wait again (an adopted handle is adopted anew). */
    void (*cancel)(void *device, int32_t on);
    /* A descriptor that polls readable when there are bytes to read, until they are read, so that one thread
     * can wait for many devices at once; a read that returns less than it was asked for has taken the last of
     * them. It lives as long as the device. -1: there is none, or not now. */
    int32_t (*descriptor)(void *device);

    /* ---- These came later; a driver whose record ends before them goes without. */

    /* What has happened on the lines since the open: the fields from `cts` to `back`. 1, or a negative host
     * error number when the device counts nothing. It takes no pending errors away from `status`. */
    int32_t (*counters)(void *device, ComHostCounters *counters);
    /* From now on `changed` is called with `argument`, on any thread and as soon as it can be told, when a
     * counter of one of `events` (COM_HOST_EVENT_...) may have moved; it returns soon and calls nothing of the
     * device but `counters`. Replaces the watch before; events 0 ends it: when that call has returned, `changed`
     * runs no more. Never called by two threads at once. Returns the events that it will tell by itself, the
     * others being found when `counters` is asked. */
    uint32_t (*watch)(void *device, uint32_t events, void (*changed)(void *argument), void *argument);
    /* Bytes that have been written and not left on the line, the shift register included where the device tells
     * (an estimate will do, 0 must be right). Without it `status` tells. */
    int32_t (*unsent)(void *device);
    /* COM_HOST_DEVICE_...: whether the device is there. Gone, it reads as empty and takes no bytes. Without this
     * function it is there always. */
    int32_t (*state)(void *device);
} ComHostDriver;

/* Makes paths that begin with `scheme` and a colon open through a copy of *driver. The scheme is 2 to 31
 * letters, digits or '-', compared without letter case; a scheme that is registered already is replaced
 * for later opens, the built-in ones ("null-modem", "loop", "usb", "tcp",
 * "rfc2217", "tls", "rfc2217-tls") are not. 1; -1 null, a bad scheme, a size below
 * that of the first release (up to `descriptor`), or a driver without open, close, read and write. */
int32_t ComHostRegisterDriver(const char *scheme, const ComHostDriver *driver);

/* Raises (on nonzero) or lowers the ring indicator at both ends of the null modem with that path, or of that
 * loop; the path stands without options ("null-modem:desk"). 1; -1 when no end of it is open. */
int32_t ComHostRing(const char *path, int32_t on);

/* Lossless on (nonzero) or off for an open port. A lossless port never waits for the line inside a round
 * and drops nothing: the device is handed what it takes at once, the ring gives up exactly what was
 * taken, and the rest goes when the device can take it, however long the peer holds us off. Switched off
 * in the middle of sending, blocks may be lost until the device has sent what it was handed: wait for
 * ComOutBufStatus 0 before. 1; -1 port not open. */
int32_t ComHostSetLossless(int32_t port, int32_t on);

/* ---- Modules ------------------------------------------------------------------------------------- */

/* Loading `name` ("NAME.DLL") loads `path` instead; null or empty: the default again. The library loads a
 * module when it first needs it and keeps the outcome, a failure too, for the life of the process: map it
 * before. 1, -1. */
int32_t ComHostMapModule(const char *name, const char *path);

/* ---- Messages ------------------------------------------------------------------------------------ */

/* Every thread has a queue. A queue holds at most COM_HOST_QUEUE_LIMIT messages; posting to a full one
 * fails. A notification (0x800A to 0x800C) equal to one that is still waiting is kept once. The quit
 * request stands outside the queue: the waits see it at once, and ComHostGetMessage reports it after the
 * messages. */
enum { COM_HOST_QUEUE_LIMIT = 10000 };
enum { COM_HOST_MESSAGE_QUIT = 0x0012, COM_HOST_MESSAGE_CHAR = 0x0102 };

typedef struct ComHostMessage {
    int32_t window; /* 0: a thread message */
    uint32_t message;
    uintptr_t first;
    intptr_t second;
} ComHostMessage;

typedef void (*ComHostWindowFunc)(void *context, int32_t window, uint32_t message, uintptr_t first,
                                  intptr_t second);

/* The calling thread's identifier, for the thread messages; never 0. */
uint32_t ComHostThreadId(void);

/* A window that belongs to the calling thread: its messages are handled while that thread pumps (in
 * ComHostDispatchMessage or inside a wait). Window (above 0), -1. */
int32_t ComHostCreateWindow(ComHostWindowFunc function, void *context);
/* A window of no thread: whichever thread pumps next handles its messages, one at a time (a nested pump on
 * that thread included). */
int32_t ComHostCreateSharedWindow(ComHostWindowFunc function, void *context);
/* Ends a window from any thread; its waiting messages are dropped. When the call returns, the function
 * runs no more (unless the caller is that function). 1, -1 no such window. */
int32_t ComHostDestroyWindow(int32_t window);

/* Post a message to a window, to a thread's queue. 1; -1 no such window or thread, or its queue is full. */
int32_t ComHostPostMessage(int32_t window, uint32_t message, uintptr_t first, intptr_t second);
int32_t ComHostPostThreadMessage(uint32_t thread, uint32_t message, uintptr_t first, intptr_t second);
/* A typed character, for waits that watch for the escape character. */
int32_t ComHostPostChar(uint32_t thread, int32_t character);
/* Asks a thread to end: the waits on it that let messages through return, except ComReadTimed. */
int32_t ComHostPostQuit(uint32_t thread);

/* The calling thread's next message, waiting at most `milliseconds` (below 0: no limit). 1 a message, 0
 * none in time or a null pointer, -1 quit (which is thereby taken). */
int32_t ComHostGetMessage(ComHostMessage *message, int32_t milliseconds);
/* Calls the message's window function. 1; 0 it has no window (any more). */
int32_t ComHostDispatchMessage(const ComHostMessage *message);
/* A descriptor that polls readable while the calling thread's queue holds a message or a quit request,
 * for the program's own event loop. It belongs to the library and lives as long as the thread. -1. */
int32_t ComHostMessageDescriptor(void);

/* ---- Functions and message boxes ----------------------------------------------------------------- */

/* The 32-bit word that stands for a function in a port-parameter record, and back. 0 is no function; a
 * word that was never issued gives null. */
uint32_t ComHostFunctionWord(void (*function)(void));
void (*ComHostWordFunction(uint32_t word))(void);

/* Who shows a message box; null: it goes to standard error. 1. */
int32_t ComHostSetMessageBox(void (*function)(const char *text, const char *caption));

#ifdef __cplusplus
}
#endif

#include "brisolt/host_events.h"
#include "brisolt/host_exchange.h"
#include "brisolt/host_open.h"

#endif
