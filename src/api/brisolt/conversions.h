/* brisolt/conversions.h: time, hex and process helpers. */
#ifndef BRISOLT_CONVERSIONS_H
#define BRISOLT_CONVERSIONS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

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
