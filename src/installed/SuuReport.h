// The report on what is installed: update sets, partitions, pools and the state of an upgrade, as lines of
// text. The daemon writes it to its log; tools print it.
#ifndef INSTALLED_SUUREPORT_H
#define INSTALLED_SUUREPORT_H

#include "installed/suul.h"
#include <functional>
#include <string>

// Calls `print` with one line after the other, without line ends. Control characters in names come out as
// "?". The pools of `ctx` are built.
void writeSuuReport(const suul_ctx_t& ctx, const std::function<void(const std::string& line)>& print);

// A time in seconds since 1970-01-01 UTC, for example "1970.01.01 00:00:00"; "INVALID TIME", padded to the
// same width, for one beyond the calendar.
std::string getSuuTimeText(int64_t seconds);

#endif
