#include "lab/LogTail.h"

namespace lab {

std::vector<std::string> LogTail::newLines() {
    if (mDescriptor.get() < 0)
        mDescriptor = Descriptor(open(mFile.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<std::string> lines;
    char buffer[65536];
    ssize_t count = 0;
    while (mDescriptor.get() >= 0 && (count = read(mDescriptor.get(), buffer, sizeof buffer)) > 0) {
        mRest.append(buffer, static_cast<size_t>(count));
        size_t start = 0;
        size_t end = 0;
        while ((end = mRest.find('\n', start)) != std::string::npos) {
            lines.push_back(mRest.substr(start, end - start));
            start = end + 1;
        }
        mRest.erase(0, start);
    }
    return lines;
}

} // namespace lab
