/* brisolt/checks.h: checksums and CRCs. */
#ifndef BRISOLT_CHECKS_H
#define BRISOLT_CHECKS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A length below 1, or a null buffer, is no data: the result is then 0 unless said otherwise. Nothing is kept
 * between calls. */

/* CRC-16/XMODEM: polynomial 0x1021 from 0, nothing reflected (0x31C3 for the digits 1 to 9). */
uint16_t ComCRC16(const void *buffer, int32_t length);
/* Polynomial 0x8005, nothing reflected, from `start`: CRC-16/UMTS from 0 (0xFEE8 for the digits). The result
 * of one piece is the start of the next. The upper 16 bits of `start` take no part and come back unchanged;
 * no data gives `start`. */
uint32_t ComCRC16M(const void *buffer, int32_t length, uint32_t start);
/* The library's own 32-bit check (0x5EB444B9 for the digits). Not the common CRC-32. */
uint32_t ComCRC32(const void *buffer, int32_t length);
/* The same over a file, whose bytes of 0x80 and above enter with their sign: files that hold such bytes give
 * another value than ComCRC32. Handles the calling thread's messages and pauses 1 ms before each block of
 * 32000 bytes. Stores the check at `check` and gives the number of bytes read (2147483647 for a file longer
 * than that). -1 the file is missing, is no file, may not be read, or somebody has it open for writing, also
 * null; -2 no memory; -4 a read failed. Nothing is stored then. */
int32_t ComCRC32_File(const char *fileName, uint32_t *check);
/* The library's own 16-bit check (0xCA10 for the digits, 0x00D7 for no data). */
uint32_t ComGen_CRC(const void *buffer, int32_t length);

/* The sum of the bytes (0 to 255 each), its low 8, 16 or 32 bits. */
uint8_t ComCKSUM8(const void *buffer, int32_t length);
uint16_t ComCKSUM16(const void *buffer, int32_t length);
uint32_t ComCKSUM32(const void *buffer, int32_t length);
/* The exclusive-or of the bytes: 0 to 255 from all three. */
uint8_t ComXORSUM8(const void *buffer, int32_t length);
uint16_t ComXORSUM16(const void *buffer, int32_t length);
uint32_t ComXORSUM32(const void *buffer, int32_t length);

#ifdef __cplusplus
}
#endif

#endif
