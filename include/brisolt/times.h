/* brisolt/times.h: dates, times, dated file names and the tick counter. */
#ifndef BRISOLT_TIMES_H
#define BRISOLT_TIMES_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* All dates and times are the host's local ones, daylight-saving time as the host applies it. -1 from every
 * function here that is given a null pointer. */

/* Local time as hh:mm:ss and local date as mm/dd/yy into 9 bytes. 1. */
int32_t ComGetTime(char *buffer);
int32_t ComGetSystemTime(char *buffer);
int32_t ComGetDate(char *buffer);
int32_t ComGetSystemDate(char *buffer);

/* <DD MM YYYY W hh mm ss 00> into 27 bytes: W is the weekday from 0 (Sunday) to 6, the last field always 00.
 * An offset other than 0 is added to the hour, which stays within 0 and 23, moves no date and is then written
 * without a leading zero. 1. */
int32_t ComGetTimeDateStr(char *buffer, int32_t hourOffset);
/* _YYYY_MM_DD_hh_mm_ss into 21 bytes. 1. */
int32_t ComGetTimeDateStrFormat2(char *buffer);

/* The name with that stamp put before every dot: report.txt becomes report_1980_01_02_02_03_55.txt, a name
 * without a dot stays as it is. `output` needs the name's length, 20 bytes a dot and 1, and never more than
 * 400 bytes; it may be the name's own buffer. 1; 0 when the name has 260 characters or more, of which the
 * first 260 are taken, or when the result is longer than 399 characters, of which that many are stored. */
int32_t ComCreateDatedFilename(const char *fileName, char *output);
/* The name, a blank and the stamp: the name's length and 22 bytes. `output` may be the name's own buffer.
 * 0. */
int32_t ComCreateDatedFilename2(const char *fileName, char *output);

/* Milliseconds since the host started; wraps to 0 after 4294967295. One function under two names. */
uint32_t ComGetCurrentTime(void);
uint32_t _curr_time(void);
/* 1 when more than `limit` milliseconds have passed since `start` (a tick count of the above, from before a
 * wrap or after), else 0. */
int32_t ComCompareTime(uint32_t start, uint32_t limit);

#ifdef __cplusplus
}
#endif

#endif
