// A shell on a terminal on the desk: bus, database, web server and daemon run until it ends.
#ifndef LAB_SHELL_H
#define LAB_SHELL_H

#include "lab/Lab.h"
#include <atomic>

namespace lab {

// Runs it on the standard streams, and returns its exit status, or -1 when `stop` turned true. The version of
// the options is configured, and the daemon hears of it when it looks for the first time, or by the signal.
// Throws std::runtime_error when that cannot be had.
int runShell(const LabOptions& options, const WorkDirectory& directory, const std::atomic<bool>& stop);

} // namespace lab

#endif
