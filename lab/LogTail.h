// Follows a text file that another process appends to.
#ifndef LAB_LOGTAIL_H
#define LAB_LOGTAIL_H

#include "lab/Descriptor.h"
#include <string>
#include <utility>
#include <vector>

namespace lab {

class LogTail {
  public:
    // The file may not exist yet.
    explicit LogTail(std::string file) : mFile(std::move(file)) {}

    // The lines that were completed since the last call, without their line ends.
    std::vector<std::string> newLines();

  private:
    const std::string mFile;
    Descriptor mDescriptor;
    std::string mRest; // the line that is not complete yet
};

} // namespace lab

#endif
