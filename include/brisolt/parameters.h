/* brisolt/parameters.h: a port's settings as whole records, and the profile files that keep them. */
#ifndef BRISOLT_PARAMETERS_H
#define BRISOLT_PARAMETERS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records ------------------------------------------------------------------------------------- */

/* Packed, without gaps, and as wide on every host. Numbers are in the host's byte order. Texts are
 * zero-terminated; one that fills its field to the last byte loses that byte when it is set. */
#pragma pack(push, 1)

/* Line and port behaviour. 198 bytes. */
typedef struct ComPortParms {
    int32_t portNumber;   /* the port's own number */
    char deviceName[32];  /* "COM1" style; only kept */
    int32_t baudRate;     /* bits per second */
    int32_t parityCode;   /* 1 none, 2 odd, 3 even, 4 mark, 5 space */
    int32_t dataBits;     /* 4 to 8 */
    int32_t stopCode;     /* 1 one, 2 two, 3 one and a half */
    int32_t xonXoff;      /* 0 hardware (RTS/CTS), 1 software (XON/XOFF), 2 none */
    int32_t reserved;     /* kept for the caller */
    int32_t rxBufSize;    /* bytes; */
    int32_t txBufSize;    /* the rings of an open port keep the size they were opened with */
    int32_t flushDelay;   /* seconds that ComFlush waits */
    int32_t breakTime;    /* hundredths of a second */
    int32_t dtrPulseTime; /* hundredths of a second */
    int32_t yield;        /* nonzero: waits let messages through and watch for the escape character */
    uint8_t escapeChar;
    uint32_t escapeFunc;       /* word of a ComEscapeFunc in the place of ComEscape; 0 none */
    uint32_t openTick;         /* millisecond tick count of the open, or of the reading of the profile */
    int32_t portDelayInterval; /* only kept */
    uint8_t scrambleKey;       /* key of a scrambled link */
    int32_t scrambleOn;        /* scrambled when 1 */
    /* Words of the functions in the place of the port's own (drivers.h); 0 none. */
    uint32_t breakFunc, carrierFunc, dtrFunc, flushFunc, flushOutBufFunc, readFunc, ringFunc, setBaudFunc,
        setParmsFunc, setFlowFunc, statusFunc, outBufStatusFunc, writeFunc, getBreakStatusFunc,
        getCtsStatusFunc, getDsrStatusFunc, setDtrFunc, clearDtrFunc, setRtsFunc, clearRtsFunc,
        updateStatusFunc;
    /* Words of the notification functions (notifications.h); 0 none. */
    uint32_t onCharCallback, anyCharCallback, onStringCallback;
} ComPortParms;

/* Modem command strings ('|' sends a carriage return, '~' pauses a second). 595 bytes. */
typedef struct ComModemParms {
    int32_t dialTimeout; /* seconds that ComDial waits for carrier */
    char dialStr[32];    /* dial prefix */
    char discStr[32];    /* hang up */
    char resetStr[32];
    char setAAStr[32];   /* auto-answer on */
    char unsetAAStr[32]; /* auto-answer off */
    char initStr[100];
    char compressionOnStr[32];
    char compressionOffStr[32];
    char flowControlOffStr[32];
    char flowControlHdwrStr[32];
    char flowControlSoftStr[32];
    char errorControlOnStr[32];
    char errorControlOffStr[32];
    char errorControlForcedStr[32];
    char modemName[75]; /* its name in a modem database */
} ComModemParms;

/* Text transfer. 16 bytes. */
typedef struct ComAsciiParms {
    int32_t stripLF;   /* nonzero: line feeds of a sent file are dropped */
    int32_t addCR;     /* nonzero: a line feed without a carriage return before it gets one */
    int32_t charDelay; /* pause after each character, in the units of the function that sends (transfer.h) */
    int32_t lineDelay; /* pause after each line, likewise */
} ComAsciiParms;

#pragma pack(pop)

/*
 * The getters copy the port's settings out, the setters replace all of them (for single fields there are
 * the functions of checked.h). The record stays the caller's. 1; -1 bad or closed port, or null. Threads
 * that set records of one port at once do not mix texts; of the numbers each may set some, so change them
 * on a quiet port.
 *
 * A function does not fit a 32-bit field: its word stands for it (ComHostFunctionWord). Reading a record
 * and writing it back changes nothing; a record that was not read first replaces the functions. A word that
 * the library never issued stands for no function and is read back as 0. The caller answers for the word's
 * function having the field's type. ComGetPortParms also gives -1 when there is no memory for a word.
 */
int32_t ComGetPortParms(int32_t port, ComPortParms *parms);
/* Stores every field unchecked, whatever it holds, then applies parity, data bits and stop bits to the
 * device as ComSetParms does: it waits until the device has sent what it holds (half a second at most),
 * discards what both its queues hold and sets the line. With codes that ComSetParms refuses the device
 * keeps its framing. Baud rate and flow control of the device stay as they are (ComSetBaud, ComSetFlow);
 * so do its queues and the rings. On a port with setParmsFunc that function gets the three values. Its
 * result and the device's are not looked at. With a portNumber of 0 ComDTR is refused, and with one below
 * 1 ComPuts. 1; -1. */
int32_t ComSetPortParms(int32_t port, const ComPortParms *parms);
/* These four touch no device. */
int32_t ComGetModemParms(int32_t port, ComModemParms *parms);
int32_t ComSetModemParms(int32_t port, const ComModemParms *parms);
int32_t ComGetAsciiParms(int32_t port, ComAsciiParms *parms);
int32_t ComSetAsciiParms(int32_t port, const ComAsciiParms *parms);

/* ---- Profile files ------------------------------------------------------------------------------- */

/*
 * Text files of sections, "[name]", with lines "key=value".
 *
 *   Reading    Section and key match whole and without the letter case of A to Z. Blanks around names and
 *              values do not count; of a value one pair of quotes around it (" or ') is taken off. A line
 *              that begins with ';' is a comment; a ';' behind a value belongs to it. Of a key that stands
 *              twice the first counts; sections of the same name count as one. A byte order mark of UTF-8
 *              is passed over, any other byte is a character of its own. A value ends at a zero byte.
 *   Writing    changes the value and nothing else: comments, blank lines, other sections, the order and
 *              the spelling of keys and the line ends (LF or CR LF) stay byte for byte. A new key goes
 *              behind the last one of its section, a new section to the end of the file. A value with
 *              outer blanks, or in quotes, is put in quotes, so that it reads back as it was. What no
 *              line can hold is refused: a value with a line break, a key that is empty, begins with '['
 *              or ';' or has '=' or a line break in it, a section with ']' or a line break in it.
 *   Safety     A change is written to a file beside the profile (.NAME.new), flushed and renamed over it:
 *              whoever reads finds the old file or the new one, also after a crash, which may leave
 *              .NAME.new there, half written perhaps; the next change takes it over. Permissions are kept,
 *              owner and group where the host lets them be, and a symbolic link to the profile stays one
 *              (a second hard link keeps the old file). Programs and threads that write at once lose
 *              nothing of each other. One that is held up by another for 10 s (20 s for a whole port)
 *              fails.
 *   Names      A name without a directory is in the current one. A name with backslashes is the file of
 *              that very name if there is one, else the one with slashes.
 *
 * A null section, key or file name is an absent key to the readers and a failure to the writers. A file
 * that cannot be read (also for want of memory), is no file or is larger than 64 MB has no keys. Any thread
 * may call these; none belongs to a port. ComHostGetErrorText tells why a write failed.
 */

/* The value of a key, or of `defaultValue` written as the writers would write it when the key is absent.
 * Bool: 1 for 1, true, on, yes, 0 for 0, false, off, no, without letter case; 65535 for anything else.
 * Int: decimal, cut to 32 bits' range, 0 without digits (also for an empty value).
 * Long: 0x hexadecimal, a leading 0 octal, else decimal, unsigned up to 4294967295 (more, with a sign or
 * without, is cut to that), returned as the same 32 bits; a sign is understood, so that -5 reads back as
 * -5; 0 without digits.
 * Char: 0 to 255: a number as for Long (above 255: 0), ^ and a character of @ to _ for a control character,
 * \ and one of a b f n r t v, or any other for itself, or the character; else 0. */
int32_t ComGetProfBool(const char *section, const char *key, int32_t defaultValue, const char *file);
int32_t ComGetProfInt(const char *section, const char *key, int32_t defaultValue, const char *file);
int32_t ComGetProfLong(const char *section, const char *key, int32_t defaultValue, const char *file);
int32_t ComGetProfChar(const char *section, const char *key, uint8_t defaultValue, const char *file);
/* Copies the value (or the default; null: empty) into `buffer` of `capacity` bytes, cut and terminated.
 * Characters stored, without the terminator; 0 also for a null buffer or a capacity of 0. */
int32_t ComGetProfString(const char *section, const char *key, const char *defaultText, char *buffer,
                         uint32_t capacity, const char *file);

/* Write a key: Bool as 1 or 0, Int and Long in decimal, Char in hexadecimal (0x1b). A null text removes the
 * key; that it was not there is no failure. 1; 0 failed, and then the file is as it was. */
int32_t ComWriteProfBool(const char *section, const char *key, int32_t value, const char *file);
int32_t ComWriteProfInt(const char *section, const char *key, int32_t value, const char *file);
int32_t ComWriteProfLong(const char *section, const char *key, int32_t value, const char *file);
int32_t ComWriteProfString(const char *section, const char *key, const char *text, const char *file);
int32_t ComWriteProfChar(const char *section, const char *key, uint8_t value, const char *file);

/*
 * Whole records, on the caller's record alone; ComSetPortParms and ComSetModemParms bring them to a port.
 * The loaders give 1, or 0 with the record unchanged when a value is refused (or null, or memory is short).
 * The writers write all keys of the record in one step, not one key after the other: 1, or 0 and then the
 * file is as it was. With writeAll 0 the keys marked * are removed when they hold the value that an absent
 * key stands for; with writeAll nonzero every key is written. The last three keys of a port are extras: 1
 * also when there was nothing but them to write and the file would not take them.
 *
 * Port keys, what an absent one stands for, and other values:
 *   Port* (COM1)         port number and device name: COM and up to four digits (none, or 0: port 1). Other
 *                        names of four or more characters are taken with the digits from the fourth on.
 *                        Refused: other text. Written as COM and the port number.
 *   Speed* (19200)       no number, or 0: 9600
 *   Parity* (none)       none n, odd o, even e, mark m, space s; other text: none; empty is refused
 *   DataBits* (8)        outside 4 to 8: 8
 *   StopBits* (1)        1, 2, 1.5; other text: 1; empty is refused
 *   FlowControl* (hardware)  hardware h rtscts, software s xon/xoff, none; other text: none; empty is refused
 *   InputBuffer*, OutputBuffer* (16384)  outside 1024 to 1000000: 16384
 *   FlushTime* (1)       outside 0 to 10: 1
 *   BreakTime* (25)      below 1: 20
 *   DTRTime* (100)       below 1: 10
 *   Yield* (1)           no yes or no: 1
 *   EscapeChar* (27)     0: 27
 *   PortDelayInterval (10)   0: 10
 *   SecurityCode (0)
 *   SecurityState (0)    no yes or no: scrambleOn becomes 65535 and scrambleKey 0
 * openTick becomes the tick count now; `reserved` and the functions stay the caller's. A code that has no
 * word is written as what other text stands for: parity and flow control as none, stop bits as 1.
 */
int32_t ComGetProfPortParms(const char *section, ComPortParms *parms, const char *file);
int32_t ComWriteProfPortParms(const char *section, const ComPortParms *parms, const char *file,
                              int32_t writeAll);
/*
 * Modem keys; an empty text is refused, and so is an M_DialTime of 0. Too long a text is cut to its field.
 * The writer writes an empty text as it is.
 *   M_Initialization* (AT&F&C1&D2|), M_DialString* (ATDT), M_DisconnectString* (+++~~~ATH0|),
 *   M_AutoAnswerOffString* (ATS0=0|), M_AutoAnswerOnString* (ATS0=1|), M_ResetString* (ATZ|),
 *   M_Compression_ON_String (ATS46=138|), M_Compression_Off_String (ATS46=136|), M_FlowControl_Off (AT&K0|),
 *   M_FlowControl_HDWR (AT&K3|), M_FlowControl_SOFT (AT&K4|), M_ErrorControl_ON (AT&Q5S36=7S48=7|),
 *   M_ErrorControl_OFF (AT&Q6S36=3S48=128|), M_ErrorControl_FORCED (AT&Q5S36=4S48=7|),
 *   M_Modem_Name (Hayes Compatible Standard), M_DialTime* (60)
 */
int32_t ComGetProfModemParms(const char *section, ComModemParms *parms, const char *file);
int32_t ComWriteProfModemParms(const char *section, const ComModemParms *parms, const char *file,
                               int32_t writeAll);

#ifdef __cplusplus
}
#endif

#endif
