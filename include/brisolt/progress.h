/* brisolt/progress.h: the progress record of file transfers. */
#ifndef BRISOLT_PROGRESS_H
#define BRISOLT_PROGRESS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)
/*
 * Progress of a file transfer on a port; its address comes from ComGetShow. 572 bytes, no gaps, all zero
 * after the port's open. Text transfers (transfer.h) count `bytes` and set `fileCompletionState`; the rest
 * is for whoever runs a transfer: the library keeps it, returns it and clears it.
 *
 * The calls below never see each other's work half done, from whatever thread. A number that is read
 * through the address while a transfer runs is whole, too, and at most one step old; a name is whole when
 * nobody sets it meanwhile. Two threads that both write through the address have to agree between
 * themselves.
 */
typedef struct ComShowRecord {
    char name[260]; /* the file; zero-terminated as the other name is */
    uint16_t state;
    uint32_t bytes; /* moved so far */
    uint32_t packets;
    uint32_t total; /* bytes expected */
    uint16_t size;
    uint16_t errors;
    uint32_t errorNo; /* of the last error */
    uint8_t reserved[18];
    char targetFileName[260]; /* the file that is written */
    uint32_t targetEnabled;   /* setting the target's name clears it */
    uint32_t modTime;
    uint32_t fileCompletionState; /* 10000 running, 10001 finished, 10002 failed or stopped */
} ComShowRecord;
#pragma pack(pop)

/* The port's progress record, null for a bad or closed port. It lives until the port is closed. */
ComShowRecord *ComGetShow(int32_t port);

/* Clear the record, names included. 1; [port]. */
int32_t ComShowInit(int32_t port);
int32_t ComShowClear(int32_t port);
/* Adds 1 to `bytes`. 0; [port]. */
int32_t ComShowA(int32_t port);
/* Sets `total` to the size of a file (4294967295 for larger ones). 0; -1 also when the file cannot be opened,
 * or null. */
int32_t CSetTotal(int32_t port, const char *file);

/* Names of 260 bytes or more are cut to 259. 1; -1 also for null. */
int32_t ComSetShowName(int32_t port, const char *name);
int32_t ComSetTargetFileName(int32_t port, const char *name);
/* Copy a name into a buffer of 260 bytes, filling it with zero bytes. Without a name ComGetName copies
 * "Uninitialized Name" and two zero bytes, ComGetTargetFileName an empty name. 1; -1 also for null. */
int32_t ComGetName(int32_t port, char *buffer);
int32_t ComGetTargetFileName(int32_t port, char *buffer);
/* Copies the name's last component, what follows a drive letter and the last slash or backslash; cut to 199
 * characters. Without a name "Uninitialized Name" and two zero bytes. 1; -1 also for null. */
int32_t ComGetNameOnly(int32_t port, char *buffer);

/* Store a number. 1; [port]. */
int32_t ComSetTargetEnabled(int32_t port, int32_t value);
int32_t ComSetFileCompletionState(int32_t port, int32_t value);

/* The numbers of the record, 32 bits as they are, 16 bits as 0 to 65535; [port], but for ComGetModTime, which
 * gives 0 for a bad or closed port. CGetShowABytes is ComGetBytes, CGetShowATotal is ComGetTotal. */
int32_t ComGetBytes(int32_t port);
int32_t CGetShowABytes(int32_t port);
int32_t ComGetPackets(int32_t port);
int32_t ComGetTotal(int32_t port);
int32_t CGetShowATotal(int32_t port);
int32_t ComGetSize(int32_t port);
int32_t ComGetErrors(int32_t port);
int32_t ComGetErrorNo(int32_t port);
int32_t ComGetState(int32_t port);
int32_t ComGetModTime(int32_t port);
int32_t ComGetTargetEnabled(int32_t port);
int32_t ComGetFileCompletionState(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
