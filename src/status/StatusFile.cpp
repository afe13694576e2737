#include "status/StatusFile.h"

#include "common/File.h"
#include "common/VexStreamLog.h"
#include "image/ZempPart.h"
#include "installed/SuuInfo.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace status {

namespace {

constexpr std::chrono::seconds RateWindow{10};
constexpr unsigned StatusMode = 0644; // whatever the mask
constexpr time_t Jitter = 2;          // seconds by which the same end of a wait may seem to move
constexpr size_t MaximumNeeds = 500;  // parts of many releases

uint64_t sizeOfFile(const std::string& filename) {
    struct stat status = {};
    return stat(filename.c_str(), &status) == 0 && status.st_size > 0 ? static_cast<uint64_t>(status.st_size)
                                                                      : 0;
}

bool isDirectory(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

void StatusFile::update(Sources sources, const SuuInfo* installed) {
    if (!mHasLooked) {
        mHasLooked = true;
        mIsOn = isDirectory(mDirectory);
        mStarted = time(nullptr);
    }
    if (!mIsOn)
        return;
    sources.now = time(nullptr);
    sources.notices = Noticeboard::instance().content();
    sources.sizeOf = sizeOfFile;
    sources.isRecordKnown = installed != nullptr;
    sources.isNeeded = [this, installed](const SuumBlob::Element& element) {
        return isNeeded(element, *installed);
    };
    Report report = makeReport(sources);
    complete(report, sources.now);
    mReport = report;
    const std::string text = toJson(report);
    if (text != mText)
        write(text);
}

// What is the process's, and what only a sequence of reports tells.
void StatusFile::complete(Report& report, time_t now) {
    report.program = FW_VERSION;
    report.pid = getpid();
    report.started = mStarted;
    const bool isSame = mReport.since != 0 && report.state == mReport.state;
    report.since = isSame ? mReport.since : now;
    if (isSame && std::abs(static_cast<long>(report.until - mReport.until)) <= Jitter)
        report.until = mReport.until;
    if (report.transfer)
        report.transfer->rate = rateOf(*report.transfer);
    else
        mSampledFile.clear();
}

unsigned StatusFile::rateOf(const Transfer& transfer) {
    const Clock::time_point now = Clock::now();
    if (transfer.filename != mSampledFile || (!mSamples.empty() && mSamples.back().bytes > transfer.bytes))
        mSamples.clear();
    mSampledFile = transfer.filename;
    mSamples.push_back({now, transfer.bytes});
    while (now - mSamples.front().time > RateWindow)
        mSamples.pop_front();
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(now - mSamples.front().time).count();
    const uint64_t bytes = transfer.bytes - mSamples.front().bytes;
    return ms > 0 ? static_cast<unsigned>(bytes * 1000 / static_cast<uint64_t>(ms)) : 0;
}

// Asked once for each part: the answer fills the log at its highest level.
bool StatusFile::isNeeded(const SuumBlob::Element& element, const SuuInfo& installed) {
    const std::string key =
        element.getPoolname() + " " +
        ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild()) + " " +
        element.getPlatform();
    if (mNeeds.size() > MaximumNeeds)
        mNeeds.clear();
    const auto known = mNeeds.find(key);
    return known != mNeeds.end() ? known->second
                                 : mNeeds.emplace(key, installed.isDownloadNeeded(&element)).first->second;
}

void StatusFile::write(const std::string& text) {
    const std::string name = mDirectory + Name;
    const std::string beside = name + ".new";
    File file;
    const bool isWritten = file.createAnew(beside, StatusMode) && file.write(text.data(), text.size()) &&
                           chmod(beside.c_str(), StatusMode) == 0 && file.close() &&
                           rename(beside.c_str(), name.c_str()) == 0;
    if (isWritten) {
        mText = text;
        mHasFailed = false;
        return;
    }
    const int error = errno;
    unlink(beside.c_str());
    if (!mHasFailed)
        VEX_LOG(LogWarning) << "StatusFile::write() Cannot write '" << name << "' (" << strerror(error)
                            << ").";
    mHasFailed = true;
}

} // namespace status
