// Writes the status of the daemon where other programs read it, if there is a directory for it: once after
// each change, beside the file first, then under its name. Used by one thread; nothing here throws, and a
// failure, which is logged once, harms nobody.
#ifndef STATUS_STATUSFILE_H
#define STATUS_STATUSFILE_H

#include "status/StatusReport.h"
#include <chrono>
#include <deque>
#include <map>
#include <string>

class SuuInfo;

namespace status {

class StatusFile {
  public:
    static constexpr const char* Directory = "/run/fw_download";
    static constexpr const char* Name = "/status.json";

    explicit StatusFile(std::string directory = Directory) : mDirectory(std::move(directory)) {}

    // To be called after each tick. Whether the directory is there is looked at the first time only.
    // `installed` is null while the record is not known. Adds to `sources` what is not the daemon's.
    void update(Sources sources, const SuuInfo* installed);

    // The report of the last update.
    const Report& report() const { return mReport; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Sample {
        Clock::time_point time;
        uint64_t bytes;
    };

    void complete(Report& report, time_t now);
    unsigned rateOf(const Transfer& transfer);
    bool isNeeded(const SuumBlob::Element& element, const SuuInfo& installed);
    void write(const std::string& text);

    const std::string mDirectory;
    bool mHasLooked = false;
    bool mIsOn = false;
    bool mHasFailed = false;
    time_t mStarted = 0;
    Report mReport;
    std::string mText;                  // last written
    std::map<std::string, bool> mNeeds; // answers of the installed software, which never change
    std::string mSampledFile;
    std::deque<Sample> mSamples;
};

} // namespace status

#endif
