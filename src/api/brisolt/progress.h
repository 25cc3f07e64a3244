/* brisolt/progress.h: the progress record of file transfers. */
#ifndef BRISOLT_PROGRESS_H
#define BRISOLT_PROGRESS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

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

/* The port's progress record, null for a bad or closed port. It lives until the port is closed. */
ComShowRecord *ComGetShow(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
