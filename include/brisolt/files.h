/* brisolt/files.h: files on disk, directories and paths. */
#ifndef BRISOLT_FILES_H
#define BRISOLT_FILES_H

#include <stdio.h>

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Names may be written with slashes or backslashes: a name with backslashes stands for the file with that
 * very name if there is one, else for the one with slashes in their place.
 *
 * Who has a file open. Each function below says what it denies to others while it has a file open, and it
 * fails when somebody already does that. "Somebody" is this program (through this library or on its own) and
 * every other program. On files of another user and on file systems without leases only what this library
 * has open itself is known. A file without any write permission is read-only for the superuser, too.
 * Directories, pipes and devices are no files here: a test neither opens them nor finds them. A link stands
 * for what it leads to, and a dangling one for nothing, although its name is taken.
 */

/* ---- Existence, size and time -------------------------------------------------------------------- */

/* 1 when the file could be opened for reading and writing and nobody has it open; so one that is held (by
 * the caller itself, too) or read-only counts as absent. Else 0, also for null. */
int32_t ComFileExist(const char *name);
/* 1 when the file can be opened for reading, whoever reads and writes it. Else 0, also for null. */
int32_t ComFileExist_Read_Shared(const char *name);
/* Size in bytes, at most 2147483647. 0 also when it cannot be opened for reading or somebody has it open for
 * writing. */
int32_t ComFileSize(const char *name);
/* When a file or directory was last changed, in seconds since 1970-01-01 00:00 UTC; -1 there is none. */
int32_t ComGetmtime(const char *name);
/* Bytes of the file behind an open stream, at most 2147483647, without what the stream still buffers. Its
 * position stays. -1 null, a stream without a descriptor, or no file behind it. */
int32_t _getfilesize(FILE *stream);

/* ---- Comparing ----------------------------------------------------------------------------------- */

/* Compares two files, which others may read and write meanwhile. 0 they are equal; above 0 the first byte
 * that differs, counted from 1; -1 the first file is missing or cannot be read; -2 the second; -3 a read
 * failed; -4 their lengths differ, which is looked at every 1000 bytes before the bytes themselves. */
int32_t ComDiffFile(const char *firstName, const char *secondName);
/* Writes where two files differ to the port's debug log, which it switches on with the file `report` (null
 * or empty: off) and leaves on. Positions count from 1. A range runs from its first differing byte to its
 * last one before four equal bytes; one that is open at the end of the data runs to there. Of files of
 * different lengths the shorter length is compared. 0 done, whatever was found; -1 bad or closed port, first
 * file missing, or the report cannot be written (then nothing is compared); -2 second file missing; -3 a read
 * failed. */
int32_t ComDiffFile_Report(int32_t port, const char *firstName, const char *secondName, const char *report);

/* ---- Appending, copying, moving, deleting -------------------------------------------------------- */

/*
 * The destination comes first. Nothing is lost by a failure: the destination is then as it was before (cut
 * back, or still not there), and the source stays. Success means that the bytes are on the disk.
 *   1   done
 *   -1  the source is absent as for ComFileExist (missing, held, read-only), null, or memory is short
 *   -2  the destination cannot be opened or created, or its end cannot be reached
 *   -3  a read of the source failed, or it became shorter meanwhile
 *   -4  a write to the destination failed: disk full, limit reached
 * The source may be read by others meanwhile, but not written; the same goes for the destination. A new file
 * has the source's permissions as far as the program's mask allows.
 */

/* Adds the source to the end of the destination, or creates it as ComCopyFile does. A destination that is
 * held or read-only, and the source itself, give -2. A program that is killed meanwhile leaves what it has
 * added. */
int32_t ComAppendFile(const char *destination, const char *source);
/* Replaces or creates the destination; where it is a link, the file that it leads to. The new file is
 * written out of sight and takes its place, owner and permissions in one step when complete: whoever looks
 * finds the old file or the new one. A program that is killed meanwhile leaves the old file, or none, and
 * nothing else; only in the moment of a replacement a complete copy can stay beside it, as .brisolt-.... On
 * file systems that know no files without a name the draft has that name from the start, and a kill leaves
 * it. -1 also when a destination is there that cannot be deleted or replaced: held, read-only, no file, or
 * the source itself. */
int32_t ComCopyFile(const char *destination, const char *source);
/* ComCopyFile, then deletes the source. -5 the copy is complete, but the source could not be deleted: both
 * files are there. */
int32_t ComMoveFile(const char *destination, const char *source);

/* Deletes a file that nobody has open. Of a link the link goes, not what it leads to. 1; 0 not deleted:
 * missing, held, read-only, no file. */
int32_t ComDeleteFile(const char *name);
/* Deletes all files that a pattern stands for (both forms of ComAddFileList), also those beyond the 1001 of a
 * list, and leaves those that cannot be deleted. What a search finds is deleted under the very name that it
 * has on the disk, a backslash in it included. A pattern without a directory works on the current one. 1,
 * whatever has been deleted, also for null. */
int32_t ComDeleteMultipleFiles(const char *pattern);

/* ---- The buffered writer of a port --------------------------------------------------------------- */

/*
 * Collects bytes in the port's memory and writes them to the file in blocks of some 61500, each straight to
 * the disk. A write that fails is tried ten times in all, from where the file ended before; then the bytes
 * held are dropped. What goes wrong is told in the port's protocol log. The file is open only while it is
 * written; it must be there then. One thread at a time; a second one waits. A call out of a window message
 * that comes while the same thread is writing is refused. The port's close drops what is held, and so does a
 * kill of the program, which leaves the blocks that were written and perhaps a part of the next.
 */

/* Names the file (at most 259 characters): with mode 1 a new one in place of one that may be there, else the
 * existing one, at whose end the bytes go, or a new one. What was held for an earlier file is dropped. 1; -1
 * the file cannot be opened or created (a held or read-only one counts as absent and yet is in the way): it
 * is named all the same, so that bytes may be added until it can be written; -1 also for an empty name, after
 * which no file is named, and for a bad or closed port, null or a name that is too long, which leave what was
 * named before. */
int32_t ComBufferFileWrite_Start(int32_t port, const char *name, int32_t mode);
/* Adds bytes. A call for which there is no room writes out what is held first, and then its own bytes in
 * pieces. 1 held or written; -1 bad or closed port, no file named, null or negative length, or not written:
 * when the file could not be opened, what is held stays (the bytes of this call only if there was room for
 * them), and after ten attempts it is dropped. */
int32_t ComBufferFileWrite_Next(int32_t port, const void *bytes, int32_t length);
/* Writes what is held and ends the use of the file, also when it fails. 1; -1 bad or closed port, no file
 * named, or not written. */
int32_t ComBufferFileWrite_Close(int32_t port);

/* ---- Checking what was written ------------------------------------------------------------------- */

/* Switches the port's verify log on with the file `log` and looks whether the file can be read. 1; -1. */
int32_t ComVerifyFileWriteInit(int32_t port, const char *name, const char *log);
/* Whether the file holds the expected bytes (any number) at an offset in bytes. Each that differs has its
 * line in the verify log. 1; -2 it holds others; -1 bad or closed port, null, a negative length, or the file
 * cannot be read or is too short. */
int32_t ComVerifyFileWrite(int32_t port, const char *name, int32_t offset, const void *expected,
                           int32_t length);
/* A check of the first two bytes of a stream, which have to be 0. Starts it. [port] */
int32_t ComInitVerifyWrite(int32_t port);
/* The stream's next bytes. 1; minus the number of bytes that matched before the first that does not (0 when
 * that is the first); -1 also for a bad or closed port, or null. */
int32_t ComVerifyWrite(int32_t port, const void *bytes, int32_t length);

/* ---- Directories and paths ----------------------------------------------------------------------- */

/* The current directory's path into 260 bytes. Its length; -1 null, there is none, or it is longer. */
int32_t ComGetCurrentDirectory(char *buffer);
/* 1; -1. For all threads of the program. */
int32_t ComSetCurrentDirectory(const char *path);
/* 1; 0 not created (it exists already, its parent does not, no permission, null). */
int32_t ComCreateDirectory(const char *path);

/* Splits by the usual rule: a drive is a letter and a colon, the directory goes through the last slash or
 * backslash. The name with its extension and the drive with the directory go to buffers of 260 bytes; a null
 * one is left out. 1; 0 the path is empty, null, longer than 260 characters, or a part does not fit; the
 * buffers are untouched then. */
int32_t ComStripFileName(const char *path, char *name, char *directory);
/* Splits by a rule of its own: only the backslash separates directories, and the extension starts at the
 * first dot of the last component. C:\dir\sub\report.tar.gz gives C:, \dir\sub\, report and .tar.gz. A text
 * of more than one character before a colon is no drive; the colon then belongs to the name. The first 260
 * characters of a path are looked at; when it does not end there, its last piece is dropped. `drive` takes 3
 * bytes, the others 260 each; a null one is left out. */
void ComSplitPath(const char *path, char *drive, char *directory, char *name, char *extension);
/* Puts a path together in 260 bytes (what is too long is cut). A colon follows a drive, a separator a
 * directory, and a dot goes before an extension, each unless it is there; null counts as empty. The
 * separator is a backslash, but a slash where the directory is written with slashes alone. */
void ComMakePath(char *output, const char *drive, const char *directory, const char *name,
                 const char *extension);
/* The first place in a path where its file part (name and extension) stands; the path itself when there is
 * no file part. Null gives null. */
const char *_justname(const char *path);

/* ---- Files by handle ----------------------------------------------------------------------------- */

/*
 * A handle is a number above 0 that belongs to the file until ComCloseFile; it may be used with any open
 * port, stays open when the port is closed, and does not come back for another file soon. Any thread may
 * use it; a file closed in the middle of a read or write is closed when that has ended.
 */

/* Opens a file for reading and writing without emptying it, or creates it; others may do both, too. It is
 * positioned at the end once: writes go on from wherever ComSetFilePointer put it. A character device that
 * can be positioned may be opened so. The handle; 0 bad or closed port, empty name, read-only, held by
 * somebody who denies it. */
int32_t ComOpenWriteFile(int32_t port, const char *name);
/* Opens a file for reading from its start; others may read but not write it meanwhile. The handle; 0 bad or
 * closed port, empty name, unreadable, or open for writing. */
int32_t ComOpenReadFile(int32_t port, const char *name);
/* Sets the position, in bytes from the start. The new position; -1 bad or closed port, no such handle, or a
 * position below 0. */
int32_t ComSetFilePointer(int32_t port, int32_t handle, int32_t position);
/* 1, also for the handle 0 and for one that is no file's (any more); -1 bad or closed port, or the host
 * reports at last that something written was lost. */
int32_t ComCloseFile(int32_t port, int32_t handle);
/* One write of so many bytes. Bytes written: fewer when the disk is full, 0 when it failed, when nothing was
 * asked for, or when there is no such handle; -1 bad or closed port, null, or a negative count. */
int32_t ComWriteFile(int32_t port, int32_t handle, const void *buffer, int32_t count);
/* One read of at most so many bytes. Bytes read: 0 at the end, when it failed, or when there is no such
 * handle; -1 as for ComWriteFile. */
int32_t ComReadFile(int32_t port, int32_t handle, void *buffer, int32_t count);

#ifdef __cplusplus
}
#endif

#endif
