// What `zemp check` finds wrong with an image.
#ifndef ZEMP_FINDING_H
#define ZEMP_FINDING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zemp {

struct Finding {
    bool isError = true; // the update fails in the field, or does other than what is written; else a warning
    std::string id;      // for machines
    std::optional<uint64_t> offset; // in the image
    std::optional<unsigned> line;   // of the manifest, from 1
    std::string what;
    std::string why;  // it matters
    std::string mend; // how
};

using Findings = std::vector<Finding>;

} // namespace zemp

#endif
