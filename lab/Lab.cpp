#include "lab/Lab.h"

#include "lab/FaultServer.h"
#include "lab/SampleImage.h"
#include "lab/WebServer.h"
#include "plan/InstalledSoftware.h"
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace lab {

namespace fs = std::filesystem;

namespace {

constexpr Milliseconds sStopTime{5000};

constexpr const char* sImagePath = "/lab/images/update.zemp"; // in the terminal
constexpr const char* sBusPath = "/lab/bus";

constexpr uint64_t sHeaderFetch = 512; // bytes of the request for a part's header

// Of a range like "512-1023".
uint64_t lengthOf(const std::string& range) {
    const size_t dash = range.find('-');
    if (dash == std::string::npos)
        return 0;
    return std::strtoull(range.c_str() + dash + 1, nullptr, 10) - std::strtoull(range.c_str(), nullptr, 10) +
           1;
}

// An input that is missing is named by its own name; one that is a pipe or a device would block.
void checkFile(const std::string& name) {
    if (access(name.c_str(), R_OK) != 0)
        throw std::runtime_error("'" + name + "': " + strerror(errno));
    if (!fs::is_regular_file(name))
        throw std::runtime_error("'" + name + "': not a regular file");
}

std::string numberText(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

} // namespace

Lab::Lab(const LabOptions& options, const WorkDirectory& directory)
    : mOptions(options), mDirectory(directory), mTerminal(directory, Programs::find()) {
    prepareImage();
    prepareRecord();
    mPlan = plan::makePlan(*imagefile::openImage(mImageFile), mRecordFile);
    mParts = matchParts(mPlan, *mImage);
    mVersion = ConfiguredVersion::parse(options.version.empty() ? releaseVersion() : options.version);
}

Lab::~Lab() = default;

void Lab::prepareImage() {
    mImageFile = mOptions.image;
    if (mImageFile.empty()) {
        mImageFile = mDirectory.file("sample.zemp");
        writeSampleImage(mImageFile);
    }
    checkFile(mImageFile);
    mImageFile = fs::absolute(mImageFile);
    mImage = std::make_unique<imagefile::ImageReader>(mImageFile);
    if (mImage->release() == nullptr)
        throw std::runtime_error("'" + mImageFile + "': no valid release header in the image");
    mTerminal.bind({mImageFile, sImagePath});
}

void Lab::prepareRecord() {
    mRecordFile = mDirectory.temporary() + "/hostcfg.backup";
    if (!mOptions.installed.empty()) {
        checkFile(mOptions.installed);
        const plan::InstalledSoftware named(mOptions.installed); // where it fails, it names the user's file
        fs::copy_file(mOptions.installed, mRecordFile, fs::copy_options::overwrite_existing);
    } else if (mOptions.image.empty())
        writeSampleRecord(mRecordFile);
    else
        writeEmptyRecord(mRecordFile);
    mInstalledVersion = plan::InstalledSoftware(mRecordFile).release();
    if (mInstalledVersion.empty())
        mInstalledVersion = imagefile::versionText({}, ' ');
}

std::string Lab::releaseVersion() const {
    return imagefile::versionText(mImage->release()->version);
}

void Lab::startServices() {
    mTerminal.check();
    mBus = std::make_unique<PrivateBus>();
    mBusAddress = std::make_unique<ScopedEnvironment>("VEX_CBUS_ADDRESS", mBus->address());
    mTerminal.bind({mBus->directory(), sBusPath});
    if (mOptions.faults.empty())
        mWebServer = std::make_unique<WebServer>(mTerminal, mDirectory, sImagePath, mOptions.speed);
    else
        mWebServer = std::make_unique<FaultServer>(
            std::string(reinterpret_cast<const char*>(mImage->data()), static_cast<size_t>(mImage->size())),
            Fault::parseAll(mOptions.faults), mOptions.speed);
    mConfig = std::make_unique<ConfigStore>(mDirectory.database() + "/config.db");
    mConfig->setInstalledVersion(mInstalledVersion);
}

Lab::Environment Lab::daemonEnvironment() const {
    return {{"VEX_CBUS_ADDRESS", std::string("unix:path=") + sBusPath + "/" + PrivateBus::SocketName},
            {"VEX_CONFIGDB", "/lab/db/config.db"},
            {"VEX_TIME_SCALE", numberText(mOptions.timeScale)}};
}

void Lab::startDaemon() {
    ChildOptions options;
    options.arguments = {Terminal::DaemonPath, "-c", "-v", std::to_string(mOptions.verbosity)};
    options.environment = daemonEnvironment();
    const Descriptor output = Descriptor::open(daemonLog(), O_WRONLY | O_CREAT | O_APPEND);
    options.output = output.get();
    mDaemon = mTerminal.start(options);
}

void Lab::stopDaemon() {
    if (!mDaemon)
        return;
    mDaemon->signal(SIGINT);
    if (!mDaemon->waitFor(sStopTime))
        throw std::runtime_error("fw_download does not end within " +
                                 std::to_string(sStopTime.count() / 1000) + " s");
    if (!mDaemon->exitStatus()->isExit(0))
        throw std::runtime_error("fw_download ended " + mDaemon->exitStatus()->toString());
}

void Lab::configure() {
    mConfig->configure(mVersion, mWebServer->url());
}

uint64_t Lab::fetchedBytes() const {
    uint64_t bytes = 0;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(mDirectory.downloads(), error)) {
        const std::string name = entry.path().filename();
        if (name.rfind("ZempStart-", 0) != 0 && name.rfind("ContentPart-", 0) != 0)
            continue;
        const uint64_t size = entry.file_size(error);
        bytes += error ? 0 : size;
    }
    return bytes;
}

std::string Lab::describeRange(const std::string& range) const {
    if (range.empty())
        return "whole image";
    const uint64_t first = std::strtoull(range.c_str(), nullptr, 10);
    for (const PlannedPart& planned : mParts) {
        const uint64_t start = planned.part->offset;
        if (first >= start && first < start + planned.part->size())
            return planned.name() + (first != start                   ? " body"
                                     : lengthOf(range) > sHeaderFetch ? ", whole"
                                                                      : " header");
    }
    return first < mParts.front().part->offset ? "image start" : "behind the last part";
}

} // namespace lab
