/* brisolt/file_lists.h: lists of file names, and names against patterns. */
#ifndef BRISOLT_FILE_LISTS_H
#define BRISOLT_FILE_LISTS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Lists of files ------------------------------------------------------------------------------ */

/* A list of file names, the caller's own until it is freed. */
typedef struct FileList FileList;

/*
 * Adds the files that a pattern stands for to a list (null: makes one). Use the result from then on: a list
 * that grows may move.
 *
 * A pattern with wildcards, such as logs/a*.txt, finds the files (everything but directories) whose names
 * match: `*` is any run of characters, `?` any one, `*.*` every name. Letter case counts, and a name that
 * begins with a dot is found only by a pattern whose file part does, as everywhere on this host. Directories
 * may be written with slashes or backslashes; without one the current directory is meant. The names come in
 * order, with the pattern's drive and directory before each, at most 1001 a call. A name with a backslash
 * of its own, which would mean another file behind a directory written with backslashes, has its directory
 * as this host writes it.
 *
 * A pattern with bytes 255 names files itself: a directory, then a byte 255 before each name. The files need
 * not be there. A separator is put between unless the directory ends with one: a backslash, but a slash
 * where the directory is written with slashes alone. An empty name is a name, too: the directory.
 *
 * Names of 260 characters or more do not fit a caller's buffer and are left out.
 *
 * The list; the list given, unchanged, when nothing matched or the pattern is null. Where memory runs out
 * among the names, or the host fails to tell them all (ComHostGetErrorText tells why), the list ends with those
 * made before, none maybe. Null when there is no memory for the list
 * itself or it is no list any more (one that was given and is a list stays as it was).
 */
FileList *ComAddFileList(FileList *list, const char *pattern);
/* Number of names; 0 for null and for what is no list any more. */
int32_t ComGetListCount(FileList *list);
/* Copies a name (index from 0) into 260 bytes. 1; 0 for an index at or beyond the count, which frees the
 * whole list; 0 and the list stays for an index below 0 or a null buffer; 0 for what is no list. */
int32_t ComGetFile(FileList *list, int32_t index, char *buffer);
/* The same, freeing included. */
int32_t ComGetFile_NoFree(FileList *list, int32_t index, char *buffer);
/* 1; 0 for null and for what is no list any more. */
int32_t ComFreeFileList(FileList *list);

/* ---- The file-string list of a port -------------------------------------------------------------- */

/* Names with a value each (a size, say), kept in the port's tracked memory until its close or ComFreeAll. */

/* Adds a name of any length. 1; -1 bad or closed port, null, memory short, or the list full (1000 names). */
int32_t ComAddFileString(int32_t port, const char *name, uint32_t value);
/* Number of names; -1 bad or closed port. */
int32_t ComGetFileStringCount(int32_t port);
/* Copies a name (index from 0) into a buffer, which has to take the longest name that was added and its
 * terminator. 1; -1 bad or closed port, null, or no such index. */
int32_t ComGetFileString(int32_t port, int32_t index, char *buffer);
/* The value of a name; -1 bad or closed port, or no such index. */
int32_t ComGetFileStringSize(int32_t port, int32_t index);
/* Takes all names out. [port] */
int32_t ComFreeFileString(int32_t port);

/* ---- One name against one pattern ---------------------------------------------------------------- */

/*
 * Whether a name matches a pattern. It takes no second look: the text after a star is taken where it stands
 * first, so `*ab` does not match abab. A star reaches to the next text only: what follows that has to stand
 * right there. A question mark is exactly one character, also at the end, where a star before it has taken
 * what came before: `*?` matches every name but an empty one. Without wildcards both must be
 * equal; letter case always counts, and names may be of any length. A pattern has at most 14 segments
 * (stars, question marks, the texts between them, and one more when it begins with a text), of which the
 * first 261 characters count. 1 it matches; 0 it does not; -1 too many segments, or null.
 */
int32_t ComCheckFileMatch(const char *pattern, const char *name);

#ifdef __cplusplus
}
#endif

#endif
