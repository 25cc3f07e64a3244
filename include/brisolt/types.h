/* brisolt/types.h: what the other headers of brisolt share. */
#ifndef BRISOLT_TYPES_H
#define BRISOLT_TYPES_H

#include <stdint.h>

#if defined(__GNUC__)
#define BRISOLT_FORMAT(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define BRISOLT_FORMAT(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t (*ComPortFunc)(int32_t port);
typedef int32_t (*ComPortValueFunc)(int32_t port, int32_t value);
typedef int32_t (*ComSetParmsFunc)(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits);
typedef int32_t (*ComReadFunc)(int32_t port, void *buffer, int32_t count);
typedef int32_t (*ComWriteFunc)(int32_t port, const void *buffer, int32_t count);
typedef int32_t (*ComEscapeFunc)(int32_t port, int32_t character);

#ifdef __cplusplus
}
#endif

#endif
