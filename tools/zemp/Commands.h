// What the tool's commands do. Results go to the console's `out`; each returns the exit status, or throws
// std::exception with one line about an input that is not as it should be.
#ifndef ZEMP_COMMANDS_H
#define ZEMP_COMMANDS_H

#include <ostream>
#include <string>
#include <vector>

namespace zemp {

struct Console {
    std::ostream& out;
    std::ostream& err;
    bool isTerminal = false; // err is one: progress is shown
};

constexpr int StatusGood = 0;
constexpr int StatusBadInput = 1;
constexpr int StatusWrongUse = 2;

// To standard output when `image` is "-". Writes nothing when a part has other bytes than one of the same
// name and version in an `older` image, or when `isChecked` and checkImage() finds an error; its warnings are
// told.
int buildImage(const std::string& description, const std::string& image,
               const std::vector<std::string>& older, bool isChecked, const Console& console);
int showListing(const std::string& image, bool json, const Console& console);

// `part` is a part's name, or its offset. An empty `output` is the console.
int extractPart(const std::string& image, const std::string& part, const std::string& output,
                const Console& console);
int showFindings(const std::string& image, const std::vector<std::string>& older, bool json,
                 const Console& console);

// For each record, or for a terminal that has nothing when there is none. Writes the picture, of one, to
// `svg`, unless that is empty.
int showPlans(const std::string& image, const std::vector<std::string>& records, bool json,
              const std::string& svg, const Console& console);

int buildRecord(const std::string& description, const std::string& record, const Console& console);
int showRecord(const std::string& record, bool json, const Console& console);
int checkRecord(const std::string& record, const Console& console);

} // namespace zemp

#endif
