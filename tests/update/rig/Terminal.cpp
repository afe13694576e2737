#include "update/rig/Terminal.h"

#include "common/VexStreamLog.h"
#include "image/ZempCreator.h"
#include "lab/ImageVerdict.h"
#include "main/ArgParser.h"
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace rig {

namespace {

constexpr unsigned FirstStatusTicks = 180;
constexpr unsigned DownloadTimerTicks =
    FwDownloadDaemon::DownloadIntervalMs / FwDownloadDaemon::QueueIntervalMs;

} // namespace

Terminal::Terminal() {
    const char* level = getenv("FW_RIG_LOG"); // a history of faults logs a lot
    VexStreamLog::setLevel(level != nullptr ? static_cast<LogPriority>(atoi(level)) : LogEmergency);
    mkdir((mDirectory.path() + "/fw").c_str(), 0755);
    ArgParser::setDownloadDirectory(mDirectory.path() + "/fw");
    ZempCreator::setTempFilename(mDirectory.path() + "/zempparts");
}

Terminal::~Terminal() {
    daemon.reset();
}

void Terminal::publish(const std::string& version, const imagefile::ImageBuilder& image) {
    server.images[urlOf(version)] = image.build();
}

void Terminal::install() {
    const hostcfg::Bytes record = hostcfg::build(installed);
    mDirectory.write("hostcfg", std::string(record.begin(), record.end()));
}

void Terminal::removeRecord() {
    unlink(mRecord.secondary.c_str());
}

void Terminal::configure(const std::string& version) {
    config.version = version;
    mConfiguredAt = mNow;
    notify();
}

void Terminal::notify() {
    if (!isUpdateNeeded()) {
        config.ready.clear();
        return;
    }
    if (daemon)
        daemon->mMasterQueue.add(
            new NewFirmwareNeededEvent(urlOf(config.version), config.version, config.forced));
    mStatusAt = 0; // a change notice replaces the first status
}

void Terminal::restart(bool statusAtOnce) {
    mCurrent = nullptr;
    mZempHandler.reset();
    daemon.reset();
    daemon = std::make_unique<Daemon>(mRecord);
    mZempHandler = std::make_unique<ZempHandler>(daemon->mZempHandlerQueue, daemon->mMasterQueue);
    mStatusAt = mNow + (statusAtOnce ? 1 : FirstStatusTicks);
}

bool Terminal::isUpdateNeeded() const {
    return config.version != config.installed && !config.disabled;
}

// The configuration monitor's decision at start.
void Terminal::sendStatus() {
    mStatusAt = 0;
    auto status = ConfigDbStatusEvent::ConfigGetNewFirmware;
    std::string obsolete;
    if (!isUpdateNeeded()) {
        status = ConfigDbStatusEvent::ConfigNoUpdateNeeded;
        obsolete = config.ready;
        config.ready.clear();
    } else if (!config.ready.empty() && config.ready.find(config.version) == std::string::npos) {
        obsolete = config.ready;
        config.ready.clear();
    } else if (!config.ready.empty() && access(config.ready.c_str(), F_OK) == 0) {
        status = ConfigDbStatusEvent::ConfigWaitForUpdate;
    } else {
        config.ready.clear();
    }
    auto* event = new ConfigDbStatusEvent(status, config.version, urlOf(config.version), config.forced);
    event->setDeleteReadyForUpdateFile(obsolete);
    daemon->mMasterQueue.add(event);
}

void Terminal::tick() {
    ++mNow;
    if (mStatusAt != 0 && mNow >= mStatusAt)
        sendStatus();
    daemon->onFdLoopTimerTimeout();
    if (mNow % DownloadTimerTicks == 0)
        daemon->onDownloadTimerTimeout();
    serveZempHandler();
    serveMonitor();
    serveDownloader();
}

void Terminal::run(unsigned ticks) {
    for (unsigned i = 0; i < ticks && !isTerminated(); ++i)
        tick();
}

void Terminal::runUntilSettled(unsigned ticks) {
    for (unsigned i = 0; i < ticks && !isTerminated(); ++i) {
        tick();
        const bool isDone = action() == FwAction::WaitForFwUpdate ||
                            (action() == FwAction::NoAction && config.version == config.installed);
        if (isDone && mStatusAt == 0 && daemon->mMasterQueue.size() == 0)
            return;
    }
}

void Terminal::serveZempHandler() {
    while (daemon->mZempHandlerQueue.size() > 0) {
        FwWorkItem* item = daemon->mZempHandlerQueue.remove();
        if (compileFails && item->getWorkItemType() == WorkItemType::CompileUpdateZempRequest) {
            static_cast<CompileUpdateZempRequest*>(item)->setCompileStatus(
                CompileUpdateZempRequest::CompileFailed);
            daemon->mMasterQueue.add(item);
            continue;
        }
        mZempHandler->onWorkItem(item);
    }
}

// One item a tick.
void Terminal::serveMonitor() {
    if (daemon->mConfigDbQueue.size() == 0)
        return;
    FwWorkItem* item = daemon->mConfigDbQueue.remove();
    if (item->getWorkItemType() == WorkItemType::IsUpdateNeededRequest) {
        static_cast<IsUpdateNeededRequest*>(item)->setIsUpdateNeeded(isUpdateNeeded());
    } else {
        auto* ready = static_cast<SetReadyForUpdateRequest*>(item);
        config.ready = ready->getFilename();
        std::string wrong = checkReadyImage();
        if (config.ready.find(config.version) == std::string::npos && mConfiguredAt + 2 < mNow)
            wrong += " not of version " + config.version;
        if (!wrong.empty())
            mViolations.push_back("flagged " + config.ready + ": " + wrong);
        ready->setSetReadyStatus(SetReadyForUpdateRequest::SetReadyComplete);
    }
    daemon->mMasterQueue.add(item);
}

void Terminal::serveDownloader() {
    if (mCurrent == nullptr) {
        if (daemon->mDownloaderQueue.size() == 0)
            return;
        mCurrent = static_cast<DownloadRequest*>(daemon->mDownloaderQueue.remove());
        mCurrentTicks = 0;
    }
    if (++mCurrentTicks < downloadTicks)
        return;
    DownloadRequest* request = mCurrent;
    mCurrent = nullptr;
    if (server.serve(*request))
        daemon->mMasterQueue.add(request);
}

std::set<std::string> Terminal::files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path("")))
        names.insert(entry.path().filename());
    return names;
}

uint64_t Terminal::bytesOnDisk() const {
    uint64_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path("")))
        bytes += entry.file_size();
    return bytes;
}

void Terminal::write(const std::string& name, const imagefile::Bytes& bytes) const {
    mDirectory.write("fw/" + name, std::string(bytes.begin(), bytes.end()));
}

std::string Terminal::checkReadyImage() const {
    const size_t dash = config.ready.rfind(".zemp-");
    const auto image = server.images.find(urlOf(config.ready.substr(dash + strlen(".zemp-"))));
    if (image == server.images.end())
        return "unknown version";
    const imagefile::ImageReader source(
        mDirectory.write("source.zemp", std::string(image->second.begin(), image->second.end())));
    const plan::UpdatePlan plan = plan::makePlan(*imagefile::openImage(source.filename()), mRecord.secondary);
    std::string wrong;
    for (const std::string& fault :
         lab::judgeImage(config.ready, source, lab::matchParts(plan, source)).faults) {
        if (fault.rfind("release: differs", 0) != 0) // the text may have changed on the server
            wrong += fault + "; ";
    }
    return wrong;
}

} // namespace rig
