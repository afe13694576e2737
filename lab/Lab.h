// A terminal on the desk: private file system, message bus, configuration database, web server, and the
// daemon, which can be started, stopped and killed again and again on the same state.
//
// One at a time in a process; used by one thread. Every call throws std::runtime_error with the reason when
// it cannot do what it says. All processes end with the object.
#ifndef LAB_LAB_H
#define LAB_LAB_H

#include "lab/ConfigStore.h"
#include "lab/LabEvent.h"
#include "lab/PlannedPart.h"
#include "lab/PrivateBus.h"
#include "lab/Terminal.h"
#include "lab/UpdateServer.h"
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lab {

struct LabOptions {
    std::string image;     // empty: a sample of the lab's own
    std::string installed; // host configuration record; empty: the sample's, or nothing installed
    std::string version;   // to be configured, like "1.05-7"; empty: the release of the image
    int verbosity = 7;     // of the daemon; below 7 it limits its downloads to 25000 bytes per second
    unsigned speed = 0;    // of the web server, in bytes per second; 0: no limit
    std::vector<std::string> faults;   // of the web server, as Fault::parseAll() reads them
    double timeScale = 10;             // divides the daemon's timers
    std::chrono::seconds timeout{300}; // for the update
    std::string commandLine;           // for the report
};

class Lab {
  public:
    // Makes image, record and plan; nothing runs yet. `directory` must outlive the lab.
    Lab(const LabOptions& options, const WorkDirectory& directory);
    ~Lab();
    Lab(const Lab&) = delete;
    Lab& operator=(const Lab&) = delete;

    const LabOptions& options() const { return mOptions; }
    const imagefile::ImageReader& image() const { return *mImage; }
    const plan::UpdatePlan& plan() const { return mPlan; }
    const std::vector<PlannedPart>& parts() const { return mParts; }
    const ConfiguredVersion& version() const { return mVersion; }
    const std::string& installedVersion() const { return mInstalledVersion; }
    std::string releaseVersion() const; // of the image
    const std::string& imageFile() const { return mImageFile; }
    const std::string& recordFile() const { return mRecordFile; }

    // Starts bus, web server and database, with the old version installed and nothing new configured.
    void startServices();

    // Starts the daemon in console mode; its log is appended to daemonLog().
    void startDaemon();

    // The environment of the daemon: where bus and database are, and the time scale.
    using Environment = std::vector<std::pair<std::string, std::string>>;
    Environment daemonEnvironment() const;

    // Asks the daemon to end, and waits. Throws when it takes longer than 5 s or its status is not 0.
    void stopDaemon();

    // Configures the version of the options and the web server's URL.
    void configure();

    // Of the daemon's log on the machine.
    std::string daemonLog() const { return mDirectory.log("fw_download"); }

    // Bytes of the image that the daemon has on disk.
    uint64_t fetchedBytes() const;

    // Where bytes of the image belong, in words: "image start", "kernel header", "root body",
    // "root, whole".
    std::string describeRange(const std::string& range) const;

    const WorkDirectory& directory() const { return mDirectory; }
    Terminal& terminal() { return mTerminal; }

    // Null before startServices(), or startDaemon().
    PrivateBus* bus() { return mBus.get(); }
    UpdateServer* webServer() { return mWebServer.get(); }
    ConfigStore* config() { return mConfig.get(); }
    TerminalProcess* daemon() { return mDaemon.get(); }

  private:
    void prepareImage();
    void prepareRecord();

    const LabOptions mOptions;
    const WorkDirectory& mDirectory;
    Terminal mTerminal;
    std::string mImageFile;
    std::string mRecordFile;
    std::unique_ptr<imagefile::ImageReader> mImage;
    plan::UpdatePlan mPlan;
    std::vector<PlannedPart> mParts; // of image and plan
    ConfiguredVersion mVersion;
    std::string mInstalledVersion;
    std::unique_ptr<PrivateBus> mBus;
    std::unique_ptr<ScopedEnvironment> mBusAddress;
    std::unique_ptr<UpdateServer> mWebServer;
    std::unique_ptr<ConfigStore> mConfig;
    std::unique_ptr<TerminalProcess> mDaemon;
};

} // namespace lab

#endif
