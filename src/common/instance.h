/* Limit on the number of running instances of a program, with C linkage. */
#ifndef COMMON_INSTANCE_H
#define COMMON_INSTANCE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Takes one of `slots` lock files "/tmp/lock-NAME-SLOT" and holds it for the life of the process. 0 if a slot
 * was taken; 1 if all are busy, cannot be created, or `slots` is 0. */
int instance_check(const char* name, unsigned slots);

#ifdef __cplusplus
}
#endif

#endif
