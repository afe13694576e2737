// What is logged while it lives, at all levels or up to a given one.
#ifndef SUPPORT_LOGCAPTURE_H
#define SUPPORT_LOGCAPTURE_H

#include "common/VexStreamLog.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

namespace support {

// The level in force before, taken first and put back last.
class LevelKeeper {
  public:
    LevelKeeper() = default;
    ~LevelKeeper() { VexStreamLog::setLevel(mLevel); }
    LevelKeeper(const LevelKeeper&) = delete;
    LevelKeeper& operator=(const LevelKeeper&) = delete;

  private:
    const LogPriority mLevel = VexStreamLog::getLevel();
};

class LogCapture : private LevelKeeper, private VexStreamLog {
  public:
    explicit LogCapture(LogPriority level = LogDebug)
        : VexStreamLog("", Console, level), mSaved(std::clog.rdbuf(this)) {}
    ~LogCapture() override { std::clog.rdbuf(mSaved); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Every line so far, as "LOG_INFO Class::method() text".
    std::vector<std::string> lines() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mLines;
    }

    bool has(const std::string& line) const {
        const std::vector<std::string> all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    }

    // Number of lines that contain `text`.
    size_t count(const std::string& text) const {
        const std::vector<std::string> all = lines();
        return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        }));
    }

  private:
    // Lets the log print into memory in place of standard output: "(LOG_INFO): text\n".
    int sync() override {
        const std::lock_guard<std::mutex> lock(mMutex);
        char* text = nullptr;
        size_t size = 0;
        FILE* const memory = open_memstream(&text, &size);
        FILE* const console = stdout;
        stdout = memory;
        const int result = VexStreamLog::sync();
        stdout = console;
        fclose(memory);
        const std::string line(text, size);
        free(text);
        const size_t colon = line.find("): ");
        if (colon != std::string::npos)
            mLines.push_back(line.substr(1, colon - 1) + " " +
                             line.substr(colon + 3, line.size() - colon - 3 - (line.back() == '\n' ? 1 : 0)));
        return result;
    }

    std::streambuf* const mSaved;
    mutable std::mutex mMutex;
    std::vector<std::string> mLines;
};

} // namespace support

#endif
