#include "update/rig/Terminal.h"

#include "common/VexStreamLog.h"
#include "image/SwBlob.h"
#include "image/ZempCreator.h"
#include "image/ZempParser.h"
#include "image/zemp_validate.h"
#include "main/ArgParser.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace rig {

namespace {

constexpr unsigned FirstStatusTicks = 180;
constexpr unsigned DownloadTimerTicks =
    FwDownloadDaemon::DownloadIntervalMs / FwDownloadDaemon::QueueIntervalMs;

imagefile::Bytes readFile(const std::string& filename) {
    std::ifstream file(filename, std::ios::binary);
    return imagefile::Bytes(std::istreambuf_iterator<char>(file), {});
}

// The parts of an image in a file, freed with the object.
struct ParsedImage {
    explicit ParsedImage(const std::string& filename) {
        ok = parser.parseFile(filename, 0, FileFragment::ZempFile);
        for (uint32_t i = 0; i < parser.getNumberOfZempParts(); ++i)
            parts.emplace_back(parser.getZempPartAt(i));
    }
    ZempParser parser;
    bool ok = false;
    std::vector<std::unique_ptr<ZempPart>> parts;
};

} // namespace

Terminal::Terminal() {
    const char* level = getenv("FW_RIG_LOG"); // a history of faults logs a lot
    VexStreamLog::setLevel(level != nullptr ? static_cast<LogPriority>(atoi(level)) : LogEmergency);
    mkdir((mDirectory.path() + "/fw").c_str(), 0755);
    ArgParser::setDownloadDirectory(mDirectory.path() + "/fw");
    ZempCreator::setTempFilename(mDirectory.path() + "/zempparts");
    SuuInfo::sPrimaryPath = mDirectory.path() + "/none";
    SuuInfo::sSecondaryPath = mDirectory.path() + "/hostcfg";
}

Terminal::~Terminal() {
    daemon.reset();
}

void Terminal::publish(const std::string& version, const imagefile::ImageBuilder& image) {
    server.images[urlOf(version)] = image.build();
}

void Terminal::install() {
    const hostcfg::Bytes record = hostcfg::build(installed);
    std::ofstream(SuuInfo::sSecondaryPath, std::ios::binary)
        .write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
}

void Terminal::removeRecord() {
    unlink(SuuInfo::sSecondaryPath.c_str());
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
    daemon = std::make_unique<Daemon>();
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

std::vector<std::string> Terminal::files() const {
    std::vector<std::string> names;
    DIR* directory = opendir(path("").c_str());
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

uint64_t Terminal::bytesOnDisk() const {
    uint64_t bytes = 0;
    for (const std::string& name : files()) {
        struct stat status = {};
        if (stat(path(name).c_str(), &status) == 0)
            bytes += static_cast<uint64_t>(status.st_size);
    }
    return bytes;
}

void Terminal::write(const std::string& name, const imagefile::Bytes& bytes) const {
    std::ofstream(path(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool Terminal::isNeeded(const SuumBlob::Element& element) const {
    const std::string platform = element.getPlatform();
    if (!platform.empty() && platform != "-" && platform != SuuInfo::sThePlatform)
        return false;
    return std::none_of(installed.partitions.begin(), installed.partitions.end(), [&](const auto& p) {
        return p.pool == element.getPoolname() && p.version.major == element.getMajor() &&
               p.version.minor == element.getMinor() && p.version.build == element.getBuild();
    });
}

std::string Terminal::checkReadyImage() const {
    const imagefile::Bytes image = readFile(config.ready);
    zemp_header_t header;
    if (image.size() < ZempFormat::MagicSize + sizeof header)
        return "too short";
    memcpy(&header, image.data() + ZempFormat::MagicSize, sizeof header);
    if (zemp_validate_header(&header) != 1 ||
        image.size() != ZempFormat::MagicSize + header.hdr_length + header.body_length ||
        zemp_validate_body(&header, image.data() + ZempFormat::MagicSize + header.hdr_length) != 1)
        return "main header or body";
    const size_t dash = config.ready.rfind(".zemp-");
    const auto source = server.images.find(urlOf(config.ready.substr(dash + strlen(".zemp-"))));
    if (source == server.images.end())
        return "unknown version";
    const std::string sourceFile = mDirectory.path() + "/source.zemp";
    std::ofstream(sourceFile, std::ios::binary)
        .write(reinterpret_cast<const char*>(source->second.data()),
               static_cast<std::streamsize>(source->second.size()));
    const ParsedImage made(config.ready);
    const ParsedImage wanted(sourceFile);
    const SuumBlob* suum = nullptr;
    std::map<std::string, const SwBlob*> blobs;
    for (const auto& part : made.parts) {
        if (const auto* manifest = dynamic_cast<const SuumBlob*>(part.get()))
            suum = manifest;
        if (const auto* blob = dynamic_cast<const SwBlob*>(part.get()))
            blobs[part->getMapKey()] = blob;
    }
    if (suum == nullptr)
        return "no manifest";
    std::map<std::string, const SwBlob*> sources;
    for (const auto& part : wanted.parts) {
        if (const auto* blob = dynamic_cast<const SwBlob*>(part.get()))
            sources[part->getMapKey()] = blob;
    }
    for (uint32_t i = 0; i < suum->getNumberOfElements(); ++i) {
        const SuumBlob::Element& element = *suum->getElementAt(i);
        const std::string name = element.getPlatform() == "4812" ? "kernel4812" : element.getPoolname();
        const std::string key =
            name + " " +
            ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild());
        if (blobs.count(key) == 0 || sources.count(key) == 0)
            return "no part " + key;
        const SwBlob& have = *blobs[key];
        const SwBlob& want = *sources[key];
        const bool isWhole = have.getBodyLength() == want.getBodyLength() &&
                             have.getBodyCrc() == want.getBodyCrc() && have.isBodyValid();
        if (isNeeded(element) && !isWhole)
            return "needed part " + key + " is missing";
        if (!isWhole && have.getBodyLength() != 0)
            return "part " + key + " is neither whole nor header-only";
    }
    return "";
}

} // namespace rig
