/* brisolt/conversions.h: bytes, strings and hex; programs and sounds of the host. */
#ifndef BRISOLT_CONVERSIONS_H
#define BRISOLT_CONVERSIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Bytes and strings --------------------------------------------------------------------------- */

/* The functions with buffers give -1 for a null pointer where there are bytes to take or to store. */

/* The value with its bytes in reverse order. */
uint16_t ComSwapBytes_16Int(uint16_t value);
uint32_t ComSwapBytes_32Int(uint32_t value);
/* The bytes of `source` from the last to the first. In place when both are the same buffer; other overlaps
 * are not defined. 1; a length below 1 does nothing. */
int32_t ComSwapBytes_String(const void *source, void *destination, int32_t length);
/* Copies `length` bytes; the buffers may overlap. 1; a length below 1 does nothing. */
int32_t ComStr_To_Array(const void *source, void *destination, int32_t length);
/* Copies up to `length` bytes, but nothing behind the first zero byte, and terminates them: `destination`
 * needs length + 1 bytes. The number of bytes before the zero; -1 also for a length below 0. */
int32_t ComArray_To_String(char *destination, const void *source, int32_t length);
/* The byte (0 to 255) at a position; the first is 1. -1 also for a position below 1. */
int32_t ComStr_To_Array_Element(const void *array, int32_t element);

/* A byte as two lower-case hex digits into 3 bytes. 1. */
int32_t ComConvertBytetoHEXASCII(uint8_t value, char *buffer);
/* The value of one or two hex digits; only 0 to 9 and A to F count, any other character is a digit 0. An
 * empty text gives 0. 0 to 255. */
int32_t ComConvertHEXASCIItoByte(const char *text);
/* Each byte as a blank and one or two lower-case hex digits (" 41 a ff"), terminated: at most 3 * length + 1
 * bytes. 1. */
int32_t ComConvertStringtoHEXString(char *destination, const void *source, uint32_t length);

/* Appends a header and a line for each byte to a file in the form of a debug file, stamped as if by port 90,
 * which itself is left alone whoever uses it. 1, also when the file cannot be written (ComHostGetErrorText
 * tells why) and for a length below 1 (the header alone); -1 also for a file name that is null or has more
 * than 259 characters, or without memory. */
int32_t ComArray_Diagnose(const void *array, int32_t length, const char *fileName);

/* ---- Programs ------------------------------------------------------------------------------------ */

/* Starts a program with up to two arguments (a null one ends the list) and does not wait for it. 1,
 * whether or not it started. */
int32_t ComSystem(const char *program, const char *argument1, const char *argument2);
/* Runs a command line through the command interpreter and waits; the result of the runtime library's
 * system function. */
int32_t ComSys(const char *commandLine);
/* Flushes every buffered output stream of the process; one that another thread is reading from holds it up
 * for a moment only. 1. */
int32_t ComFlushAll(void);

/* ---- Sounds -------------------------------------------------------------------------------------- */

/* Rings the bell of the terminal that the program runs in; nothing without one. */
void ComBeep(void);
/* Plays a sound file, in its own full volume and within what the host's mixer is set to, and returns when it
 * is over: through paplay, pw-play or aplay, the first that is there and can. 1; -1 the file cannot be read
 * or nothing can play it, also null. */
int32_t Com_PlaySound(const char *fileName);

#ifdef __cplusplus
}
#endif

#endif
