#include "vex/kq.h"

#include "CancellationBlock.h"
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <syslog.h>

void kq_slog(int priority, const char* format, ...) {
    const CancellationBlock block;
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

void kq_panic(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    syslog(LOG_EMERG, "%s", text);
    fputs(text, stderr);
    abort();
}
