/* brisolt/logs.h: debug, protocol and verify log files. */
#ifndef BRISOLT_LOGS_H
#define BRISOLT_LOGS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Each open port may carry three more log files. The setters switch a log on (a path of at most 259
 * characters; a longer one is refused with -1) or off (null or empty) and write a header with the title
 * (null: empty). 1; -1 bad or closed port; -2 the file cannot be opened or the header not be written
 * (the log stays on and later entries try again). */
int32_t ComSetDebugFile(int32_t port, const char *path, const char *title);
int32_t ComSetProtocolDebugFile(int32_t port, const char *path, const char *protocolName);
int32_t ComSetDebugVerifyFile(int32_t port, const char *path, const char *title);

/* The writers add one stamped entry. 1 written; 0 that log is off; -1 bad or closed port, a null text, or
 * null bytes; -2 the file cannot be opened or written, or the host has no memory. Formatted entries are cut
 * at 1023 characters. What a call has written stays when the program is killed; the entry of one that is under
 * way may end anywhere. */
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

#ifdef __cplusplus
}
#endif

#endif
