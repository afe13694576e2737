/* Log and panic of the platform's C layer. Both may be called from any thread. */
#ifndef VEX_KQ_H
#define VEX_KQ_H

#include "vex/Export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes a line to the system log at `priority` (0 to 7); printf formats, and %m for the text of errno. */
VEX_PUBLIC void kq_slog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Logs at emergency priority, writes to standard error, and aborts the process. */
VEX_PUBLIC void kq_panic(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));

#ifdef __cplusplus
}
#endif

#endif
