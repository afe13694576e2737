/* String helpers with C linkage. They keep no state and may be called from any thread. */
#ifndef COMMON_STRUTIL_H
#define COMMON_STRUTIL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Hash of the bytes: h * 31 + byte, in 32 bits. The empty string hashes to 0. */
unsigned strhash(const char* s);

/* Splits `s` at runs of any of the `delimiters` into a null-terminated array of tokens, to be released with
 * strsplit_free(). A token that begins with a single or double quote runs to the next quote of that kind, or
 * to the end, and may hold delimiters; the quotes are dropped. `count` may be null; it receives the number of
 * tokens. Null if `s` or `delimiters` is null or memory is short. */
char** strsplit(const char* s, const char* delimiters, unsigned* count);

/* Releases what strsplit() returned; null is ignored. */
void strsplit_free(char** tokens);

/* Trims in place: cuts a comment that begins with '#', and white space at both ends. The first kept
 * character, which lies within `s`, or null if nothing is left. */
char* strtrim(char* s);

#ifdef __cplusplus
}
#endif

#endif
