/* Environment variables from a shell-style file, with C linkage. */
#ifndef COMMON_ENVFILE_H
#define COMMON_ENVFILE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Sets the variables of the file's lines "export NAME=VALUE", replacing older values; other lines are
 * skipped. Names have at most 32 characters, lines at most 254. Trailing white space is dropped; a value that
 * begins with a quote ends before the last quote of that kind and is empty without one. 0 if the file cannot
 * be opened, else the result of closing it. Changes the environment, so no other thread may use that
 * meanwhile. */
int env_source(const char* path);

#ifdef __cplusplus
}
#endif

#endif
