// Regular files by name, for the workers.
#ifndef WORKERS_REGULARFILE_H
#define WORKERS_REGULARFILE_H

#include <string>

// The absolute path of the regular file that `path` leads to; empty when there is none, or something else.
std::string resolveRegularFile(const std::string& path);

#endif
