// What a lab run was made with, so that its result can be told apart from others and had again.
#ifndef LAB_RUNFACTS_H
#define LAB_RUNFACTS_H

#include "lab/Lab.h"
#include <string>
#include <utility>
#include <vector>

namespace lab {

struct RunFacts {
    std::string date;          // of its begin, "2026-11-23 18:00:00 UTC"
    std::string commandLine;   // as it was given
    std::string labVersion;    // of fw_lab
    std::string daemonVersion; // as its status tells; empty when it never did
    std::string imageSha256;   // empty while it is not known
    std::string recordSha256;
    int verbosity = 0;
    unsigned speed = 0; // of the web server, bytes per second; 0: no limit
    double timeScale = 1;
};

// The command line is the caller's, and so is the version of the daemon.
RunFacts collectFacts(const LabOptions& options);

// SHA-256 of a file in hexadecimal digits, by the program sha256sum, which writes to the file `scratch`.
// Throws std::runtime_error when it cannot.
std::string sha256Of(const std::string& file, const std::string& scratch);

// Name and text of each, for people.
std::vector<std::pair<std::string, std::string>> describe(const RunFacts& facts);

} // namespace lab

#endif
