#include "lab/LabRun.h"

#include "imagefile/NumberText.h"
#include "lab/UpdateWatcher.h"
#include <filesystem>
#include <stdexcept>

namespace lab {

const char* getName(LabResult::Step step) {
    switch (step) {
    case LabResult::Prepare:
        return "preparing image and record";
    case LabResult::StartServices:
        return "starting bus, web server and database";
    case LabResult::StartDaemon:
        return "starting the daemon";
    case LabResult::Announce:
        return "announcing the new version";
    case LabResult::Update:
        return "updating";
    case LabResult::Check:
        return "checking the update image";
    case LabResult::StopDaemon:
        return "stopping the daemon";
    case LabResult::Done:
        return "done";
    }
    return "";
}

namespace {

class Run {
  public:
    Run(const LabOptions& options, const WorkDirectory& directory, LabObserver& observer)
        : mOptions(options), mDirectory(directory), mObserver(observer) {}

    LabResult run() {
        mResult.facts = collectFacts(mOptions);
        mResult.facts.commandLine = mOptions.commandLine;
        try {
            runSteps();
        } catch (const std::exception& error) {
            mResult.failure = error.what();
            takeRequests();
        }
        if (mWatcher) {
            mResult.endSeconds = mWatcher->elapsed();
            mResult.facts.daemonVersion = mWatcher->daemonVersion();
        }
        return mResult;
    }

  private:
    void runSteps() {
        mLab = std::make_unique<Lab>(mOptions, mDirectory);
        mResult.imageVersion = mLab->releaseVersion();
        mResult.installedVersion = mLab->installedVersion();
        mResult.configuredVersion = mLab->version().toString();
        mResult.imageBytes = mLab->image().size();
        for (const PlannedPart& part : mLab->parts())
            mResult.parts.push_back(
                {part.name(), part.element->version, part.part->offset, part.part->size(), part.isNeeded()});
        const std::string scratch = mDirectory.file("sha256");
        mResult.facts.imageSha256 = sha256Of(mLab->imageFile(), scratch);
        mResult.facts.recordSha256 = sha256Of(mLab->recordFile(), scratch);
        checkSense();

        mResult.step = LabResult::StartServices;
        mLab->startServices();
        mWatcher = std::make_unique<UpdateWatcher>(*mLab, mObserver);
        describe();

        mResult.step = LabResult::StartDaemon;
        mResult.daemonLog = mLab->daemonLog();
        std::filesystem::create_directories(mDirectory.run() + "/fw_download"); // as the service does
        mLab->startDaemon();
        mWatcher->report(LabEvent::Step, "started fw_download -c -v " + std::to_string(mOptions.verbosity));

        mResult.step = LabResult::Announce;
        const auto deadline = UpdateWatcher::Clock::now() + mOptions.timeout;
        mLab->configure();
        mWatcher->announce(deadline);
        mWatcher->report(LabEvent::Step, "configured version " + mLab->version().toString() +
                                             " and raised evt.confd.updated");

        mResult.step = LabResult::Update;
        mResult.readyFile = mWatcher->follow(deadline);
        mResult.seconds = mWatcher->elapsed();
        mWatcher->report(LabEvent::Step, "ready for installation: " + mResult.readyFile);

        mResult.step = LabResult::Check;
        checkImage();

        mResult.step = LabResult::StopDaemon;
        mLab->stopDaemon();
        mLab->webServer()->stop();
        takeRequests();
        mResult.step = mResult.verdict.isGood() ? LabResult::Done : LabResult::Check;
        if (!mResult.verdict.isGood())
            mResult.failure = "the update image is not what it should be: " + mResult.verdict.faults.front();
    }

    // What cannot lead to an update is said at once.
    void checkSense() {
        std::string configured = mLab->version().toString();
        configured[configured.find('-')] = ' ';
        if (configured == mLab->installedVersion())
            throw std::runtime_error("version " + configured +
                                     " is to be configured and is what the record has installed already");
    }

    void describe() {
        const std::string& url = mLab->webServer()->url();
        mWatcher->report(LabEvent::Step, "bus, database and web server run; image at " + url);
        mWatcher->report(LabEvent::Step, "installed " + mLab->installedVersion() + ", image " +
                                             mResult.imageVersion + " of " +
                                             imagefile::groupDigits(mResult.imageBytes) + " bytes");
        for (const PlannedPart& part : mLab->parts())
            mWatcher->report(LabEvent::Step, "part " + part.name() + " " + part.element->version +
                                                 (part.isNeeded() ? ": needed" : ": not needed"));
        if (mResult.imageVersion != mLab->version().toString())
            mWatcher->report(LabEvent::Warning, "the image is release " + mResult.imageVersion + ", but " +
                                                    mLab->version().toString() + " is configured");
    }

    void checkImage() {
        const std::string file = mDirectory.onMachine(mResult.readyFile);
        if (file.empty())
            throw std::runtime_error("'" + mResult.readyFile + "' is not in the download directory");
        mResult.verdict = judgeImage(file, mLab->image(), mLab->parts());
    }

    void takeRequests() {
        if (!mWatcher || mLab->webServer() == nullptr)
            return;
        mWatcher->poll();
        mResult.requests = mWatcher->requests();
        mResult.fetchedBytes = 0;
        for (const LabEvent& event : mResult.requests)
            mResult.fetchedBytes += event.request.bytes;
    }

    const LabOptions& mOptions;
    const WorkDirectory& mDirectory;
    LabObserver& mObserver;
    std::unique_ptr<Lab> mLab;
    std::unique_ptr<UpdateWatcher> mWatcher; // after the lab, whose bus it uses
    LabResult mResult;
};

} // namespace

LabResult runLab(const LabOptions& options, const WorkDirectory& directory, LabObserver& observer) {
    return Run(options, directory, observer).run();
}

} // namespace lab
