// The command line of the tool `zemp`.
#ifndef ZEMP_CLI_H
#define ZEMP_CLI_H

#include <ostream>

namespace zemp {

// Runs the tool. 0: done; 1: an input is not as it should be; 2: wrong use. Results go to `out`; each failure
// is one line on `err`. Quiets the process's log stream while it runs, so it is not called beside threads
// that log.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace zemp

#endif
