#include "common/SlogCapture.h"

#include "vex/kq.h"
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace {

std::string sLines;

} // namespace

void kq_slog(int priority, const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    sLines += "<" + std::to_string(priority) + "> " + text;
}

std::string takeSlog() {
    return std::exchange(sLines, "");
}
