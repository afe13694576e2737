/* Whole-file access and slurping, with C linkage. May be called from any thread.
 *
 * The helpers that open, act and close return -1 when opening or closing fails and log nothing; a write that
 * fails only when the buffered data goes out at the end is a failed close.
 */
#ifndef COMMON_FILEUTIL_H
#define COMMON_FILEUTIL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Replaces the file by formatted text. The number of characters printed, or -1. */
int fnprintf(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Reads values from the start of the file. The number of conversions, or -1 (also EOF, before the first). */
int fnscanf(const char* path, const char* format, ...) __attribute__((format(scanf, 2, 3)));

/* Replaces the file by `n` bytes. The number of bytes written, or -1. */
int fnwrite(const char* path, const void* buf, size_t n);

/* Reads the first `n` bytes. The number of bytes read, fewer when the file ends, or -1. */
int fnread(const char* path, void* buf, size_t n);

/* 1 if the path leads to something that exists, else 0. */
int fnexists(const char* path);

/* Size in bytes; -1 if there is no such file or its size does not fit, that is from 2 GiB on. */
int fnsize(const char* path);

/* The slurp functions return a buffer from malloc(), to be released with free(). It ends in a zero byte that
 * the length does not count. `len` may be null; it receives 0 where null is returned. A failure is logged at
 * priority 3 and gives null. */

/* Reads a descriptor to its end. An interrupted read is repeated; a failing one ends the data. */
char* slurp(int fd, size_t* len);

/* Reads a whole file. */
char* fnslurp(const char* path, size_t* len);

/* Reads the standard output of a shell command. */
char* pslurp(const char* command, size_t* len);

#ifdef __cplusplus
}
#endif

#endif
