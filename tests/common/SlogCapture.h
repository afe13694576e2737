// Stands in for the platform's kq_slog() in a test program, and keeps what was logged.
#ifndef TESTS_COMMON_SLOGCAPTURE_H
#define TESTS_COMMON_SLOGCAPTURE_H

#include <string>

// The lines logged since the last call, each as "<priority> text".
std::string takeSlog();

#endif
