// The daemon's status as it stands in its file, and whether it still holds.
#ifndef FWCTL_DAEMONSTATUS_H
#define FWCTL_DAEMONSTATUS_H

#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct DaemonStatus {
    nlohmann::json values; // an object, also when the file cannot be used; then an empty one
    std::string fault;     // why it cannot be used
    bool isRunning = false;
    bool isStale = false; // written by another process than the one that runs

    // Values of the status; an empty text or 0 for what is missing or of another kind.
    std::string text(const char* name) const { return textOf(values, name); }
    int64_t number(const char* name) const { return numberOf(values, name); }

    static std::string textOf(const nlohmann::json& object, const char* name);
    static int64_t numberOf(const nlohmann::json& object, const char* name);
};

// The process that holds the lock of the pid file; 0 when nobody does.
int64_t findLockHolder(const std::string& pidFile);

DaemonStatus readStatus(const std::string& runDirectory);

// One line about the transfer or the state, without a line end; with a bar of so many columns if any.
std::string describeProgress(const DaemonStatus& status, unsigned barColumns);

// All of it, a line each.
std::vector<std::string> describe(const DaemonStatus& status);

#endif
