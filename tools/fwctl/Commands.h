// The commands of fwctl. Each writes its result to standard output and a failure, in one line, to standard
// error, and returns the exit status.
#ifndef FWCTL_COMMANDS_H
#define FWCTL_COMMANDS_H

#include <string>

// Exit statuses.
constexpr int sDone = 0;
constexpr int sFailed = 1;
constexpr int sWrongUse = 2;

// Writes "fwctl: " + text to standard error and returns `status`.
int complain(int status, const std::string& text);

// What the daemon says about itself. `runDirectory` holds its pid file and the folder of its status.
int showStatus(const std::string& runDirectory, bool asJson);

// Shows the status as it changes until the update is ready or none is needed (done), or nothing more comes of
// it (failed). With a version the status of another one is waited out.
int watchStatus(const std::string& runDirectory, const std::string& version);

// Becomes the program that says whether an update can run; returns only when it is not there.
int checkTerminal(const std::string& runDirectory, bool asJson);

// Orders: the database first, in one transaction, then the signal.
int orderUpdate(const std::string& version, const std::string& url, bool forced);
int orderForce();
int orderDisabled(bool disabled);

// Prints the path of the flagged update image; failed when there is none.
int showPending();

#endif
