#include "update/rig/Terminal.h"

#include "common/VexStreamLog.h"
#include "image/ZempCreator.h"
#include "lab/ImageVerdict.h"
#include "main/ArgParser.h"
#include "workers/ConfigNames.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace rig {

bool Configuration::isReadyForVersion() const {
    const std::string name = "/fw_download_update.zemp-" + version;
    return ready.size() >= name.size() && ready.compare(ready.size() - name.size(), name.size(), name) == 0;
}

namespace {

constexpr unsigned FirstStatusTicks = 180;
constexpr unsigned DownloadTimerTicks =
    FwDownloadDaemon::DownloadIntervalMs / FwDownloadDaemon::QueueIntervalMs;

} // namespace

Terminal::Terminal() {
    const char* level = getenv("FW_RIG_LOG"); // a history of faults logs a lot
    VexStreamLog::setLevel(level != nullptr ? static_cast<LogPriority>(atoi(level)) : LogEmergency);
    mkdir((mDirectory.path() + "/fw").c_str(), 0755);
    mkdir((mDirectory.path() + "/run").c_str(), 0755);
    ArgParser::setDownloadDirectory(mDirectory.path() + "/fw");
    ZempCreator::setTempFilename(mDirectory.path() + "/zempparts");
}

Terminal::~Terminal() {
    mMonitor.reset();
    daemon.reset();
}

void Terminal::publish(const std::string& version, const imagefile::ImageBuilder& image) {
    server.images[urlOf(version)] = image.build();
    mPublished.emplace(urlOf(version), server.images[urlOf(version)]);
    onPublished(version);
}

void Terminal::serveWhatWasPublished() {
    for (const auto& [url, image] : mPublished) { // of those under one URL the last one stays
        server.images[url] = image;
        onPublished(url.substr(url.rfind('/') + 1, url.rfind('.') - url.rfind('/') - 1));
    }
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
    if (!mMonitor)
        return;
    mMonitor->onCBusSignal(BusName::ConfigUpdated, nullptr, 0);
    mMonitorAt = std::min(mMonitorAt, mNow); // a change notice replaces the first status
}

void Terminal::restart(bool statusAtOnce) {
    mCurrent = nullptr;
    mZempHandler.reset();
    mMonitor.reset();
    daemon.reset();
    Noticeboard::instance().clear();
    mStatus = std::make_unique<status::StatusFile>(mDirectory.path() + "/run");
    mGate = makeGate();
    mGate->readKeys();
    daemon = std::make_unique<Daemon>(mRecord, *mGate);
    mZempHandler = std::make_unique<ZempHandler>(daemon->mZempHandlerQueue, daemon->mMasterQueue);
    mMonitor = std::make_unique<ConfigDbMonitor>(daemon->mConfigDbQueue, daemon->mMasterQueue, *mGate);
    static_cast<void>(mMonitor->initialize());
    mMonitorAt = mNow + (statusAtOnce ? 1 : FirstStatusTicks);
}

bool Terminal::onRead(const std::string& key, std::string& value) {
    if (config.failingReads > 0) {
        --config.failingReads;
        mConfiguredAt = mNow;
        return false;
    }
    const size_t dot = config.version.find('.');
    const size_t dash = config.version.find('-');
    std::string current = config.installed;
    std::replace(current.begin(), current.end(), '-', ' ');
    const std::map<std::string, std::string> values = {
        {ConfigKey::ConfigStatus, config.status},
        {ConfigKey::InstalledVersion, current},
        {ConfigKey::MajorVersion, config.version.substr(0, dot)},
        {ConfigKey::MinorVersion, config.version.substr(dot + 1, dash - dot - 1)},
        {ConfigKey::BuildLabel, config.version.substr(dash + 1)},
        {ConfigKey::UpdateUrl, urlOf(config.version)},
        {ConfigKey::DownloadDisabled, config.disabled ? "1" : ""},
        {ConfigKey::Force, config.forced ? "1" : ""},
        {ConfigKey::ReadyForInstall, config.ready}};
    const auto entry = values.find(key);
    value = entry != values.end() ? entry->second : "";
    return !value.empty();
}

bool Terminal::onWrite(const std::string& key, const std::string& value) {
    if (config.failingWrites > 0) {
        --config.failingWrites;
        mConfiguredAt = mNow;
        return false;
    }
    if (key == ConfigKey::Force)
        config.forced = value == "1";
    if (key == ConfigKey::ReadyForInstall) {
        config.ready = value;
        if (isReady()) {
            ++config.flagged;
            checkFlag("flagged");
        }
    }
    return true;
}

void Terminal::onSignal(const std::string& name) {
    if (name == BusName::Reboot)
        checkFlag("reboots with");
}

void Terminal::checkFlag(const std::string& occasion) {
    std::string wrong = isReady() ? checkReadyImage() : "nothing is flagged";
    if (!config.isReadyForVersion() && mConfiguredAt + 2 < mNow)
        wrong += " not of version " + config.version;
    if (config.version == config.installed)
        wrong += " of the version that is installed";
    if (!wrong.empty())
        mViolations.push_back(occasion + " " + config.ready + ": " + wrong);
}

void Terminal::interrupt(unsigned step) {
    if (!between || step != stepsBefore)
        return;
    const std::function<void()> event = std::move(between);
    between = nullptr;
    event();
}

void Terminal::tick() {
    ++mNow;
    interrupt(0);
    if (mNow >= mMonitorAt)
        mMonitor->onFdLoopTimerTimeout();
    interrupt(1);
    daemon->onFdLoopTimerTimeout();
    if (mNow % DownloadTimerTicks == 0)
        daemon->onDownloadTimerTimeout();
    reportStatus();
    interrupt(2);
    serveZempHandler();
    interrupt(3);
    serveDownloader();
    interrupt(4);
}

// What the status says is what the queues and books of this moment say, and it tells no password.
void Terminal::reportStatus() {
    status::Sources sources;
    sources.records = daemon->mUpdateHandler.get();
    sources.firstStatus = daemon->firstConfigDbStatus();
    mStatus->update(std::move(sources), daemon->knownSuuInfo());
    const status::Report& report = mStatus->report();
    const bool isFetching = mCurrent != nullptr || daemon->mDownloaderQueue.size() > 0;
    const std::string name = status::getName(report.state);
    if (isFetching != report.transfer.has_value() || isFetching != (report.state == status::State::Fetching))
        mViolations.push_back("the status is " + name + (isFetching ? " amid" : " without") + " a transfer");
    if (daemon->mUpdateHandler && report.version != daemon->mUpdateHandler->getVersion())
        mViolations.push_back("the status has version " + report.version);
    const bool isResting = !isFetching && daemon->mZempHandlerQueue.size() == 0 &&
                           daemon->mConfigDbQueue.size() == 0 && daemon->mMasterQueue.size() == 0;
    if (isResting && action() == FwAction::WaitForFwUpdate && report.state != status::State::Ready)
        mViolations.push_back("the status is " + name + " while the image waits");
    if (status::toJson(report).find("hush") != std::string::npos)
        mViolations.push_back("the status tells the password");
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
        if (isDone && mNow >= mMonitorAt && daemon->mMasterQueue.size() == 0)
            return;
    }
}

bool Terminal::isSpaceFor(const CompileUpdateZempRequest& request) const {
    uint64_t size = bytesOnDisk();
    for (const auto& [index, part] : request.getZempParts())
        size += part != nullptr && part->isBodyValid() ? part->getSizeInZempFile() : 0;
    return diskSize == 0 || size <= diskSize;
}

void Terminal::serveZempHandler() {
    if (handlerRests > 0) {
        --handlerRests;
        return;
    }
    while (daemon->mZempHandlerQueue.size() > 0) {
        FwWorkItem* item = daemon->mZempHandlerQueue.remove();
        auto* compile = dynamic_cast<CompileUpdateZempRequest*>(item);
        const bool isSpace = compile == nullptr || isSpaceFor(*compile);
        if (compile == nullptr || (isSpace && compileFailure == ZempCreator::Failure::None)) {
            mZempHandler->onWorkItem(item);
            continue;
        }
        compile->setCompileStatus(CompileUpdateZempRequest::CompileFailed);
        compile->setFailure(isSpace ? compileFailure : ZempCreator::Failure::Space);
        daemon->mMasterQueue.add(item);
    }
}

void Terminal::serveDownloader() {
    if (mCurrent == nullptr) {
        if (daemon->mDownloaderQueue.size() == 0)
            return;
        mCurrent = static_cast<DownloadRequest*>(daemon->mDownloaderQueue.remove());
        mCurrentTicks = 0;
        if (mCurrent->getDownloadStatus() == DownloadRequest::DownloadNotStarted)
            mCurrent->setDownloadStatus(DownloadRequest::DownloadStarted);
        FileFragment& fragment = *mCurrent->getFileFragment();
        Noticeboard::instance().postTransfer(
            {fragment.getFilename(), fragment.getCurlRange(), fragment.getRangeSize()});
    }
    if (++mCurrentTicks < downloadTicks)
        return;
    DownloadRequest* request = mCurrent;
    mCurrent = nullptr;
    server.space = diskSize != 0 ? diskSize - std::min(diskSize, bytesOnDisk()) : UINT64_MAX;
    if (server.serve(*request))
        daemon->mMasterQueue.add(request);
}

std::set<std::string> Terminal::files() const {
    std::set<std::string> names;
    std::error_code none; // the directory may be gone
    for (const auto& entry : fs::directory_iterator(path(""), none))
        names.insert(entry.path().filename());
    return names;
}

uint64_t Terminal::bytesOnDisk() const {
    uint64_t bytes = 0;
    for (const std::string& name : files())
        bytes += fs::is_regular_file(path(name)) ? fs::file_size(path(name)) : 0;
    return bytes;
}

void Terminal::write(const std::string& name, const imagefile::Bytes& bytes) const {
    if (std::error_code none; fs::exists(path(""), none))
        mDirectory.write("fw/" + name, std::string(bytes.begin(), bytes.end()));
}

std::string Terminal::checkReadyImage() const {
    const size_t dash = config.ready.rfind(".zemp-");
    const auto images = mPublished.equal_range(urlOf(config.ready.substr(dash + strlen(".zemp-"))));
    std::string wrong = "unknown version";
    for (auto image = images.first; image != images.second && !wrong.empty(); ++image) {
        const imagefile::ImageReader source(
            mDirectory.write("source.zemp", std::string(image->second.begin(), image->second.end())));
        const plan::UpdatePlan plan = plan::makePlan(source.source(), mRecord.secondary);
        wrong = "";
        for (const std::string& fault :
             lab::judgeImage(config.ready, source, lab::matchParts(plan, source)).faults) {
            if (fault.rfind("release: differs", 0) != 0) // the text may have changed on the server
                wrong += fault + "; ";
        }
    }
    return wrong;
}

void prepare(Terminal& terminal, uint16_t build, const std::vector<PoolSpec>& pools) {
    terminal.publish(versionOf(build), makeImage(build, pools));
    terminal.installed = installedFor(pools);
    terminal.install();
    terminal.config.installed = versionOf(0);
    terminal.config.version = versionOf(build);
    terminal.restart();
}

} // namespace rig
