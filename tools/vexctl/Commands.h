// The commands of vexctl. Each does one thing, writes its result to standard output and a failure, in one
// line, to standard error, and returns the exit status.
#ifndef VEXCTL_COMMANDS_H
#define VEXCTL_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

// Exit statuses.
constexpr int sDone = 0;
constexpr int sFailed = 1;
constexpr int sWrongUse = 2;

// Writes "vexctl: " + text to standard error and returns `status`.
int complain(int status, const std::string& text);

int configGet(const std::string& key);

// Keys and values by turns; all are written or none.
int configSet(const std::vector<std::string>& keysAndValues);

int configErase(const std::vector<std::string>& keys);

// A line KEY=VALUE for each key that begins with `prefix`, or one JSON object of them.
int configList(const std::string& prefix, bool isJson);

// `hex` is the payload.
int signalSend(const std::string& name, const std::string& hex);

struct ListenOptions {
    std::string prefix;            // empty: every signal
    std::optional<unsigned> count; // ends after so many signals
    std::optional<double> timeout; // ends after so many seconds; a failure if it was to count
};

// A line NAME HEX for each signal, NAME alone when it has no payload, with the meaning of one that is known.
int signalListen(const ListenOptions& options);

#endif
