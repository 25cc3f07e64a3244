/* The calls of the library that the object of an open line makes itself. The binding (_native) fills the table
 * in, so that the object (_line) can be there before the library is loaded. */
#ifndef BRISOLT_PYTHON_CALLS_H
#define BRISOLT_PYTHON_CALLS_H

#include <stdint.h>

typedef struct BrisoltCalls {
    int32_t (*read)(int32_t port, void *buffer, int32_t count, int32_t milliseconds);
    int32_t (*write)(int32_t port, const void *buffer, int32_t count, int32_t milliseconds);
    int32_t (*waiting)(int32_t port);
    int32_t (*cancel)(int32_t port);
    int32_t (*close)(int32_t port, int32_t milliseconds);
} BrisoltCalls;

#endif
