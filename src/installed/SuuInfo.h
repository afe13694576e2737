// The daemon's view of the software that is installed on the terminal: loaded once from the host
// configuration record, then asked by the update logic. Used by the main thread only.
#ifndef INSTALLED_SUUINFO_H
#define INSTALLED_SUUINFO_H

#include "image/SuumBlob.h"
#include "installed/hostconfig.h"
#include "installed/suul.h"
#include <string>

// Where the record is read: the flash partition, and the backup file that is tried when it is not valid. At
// most 99 characters of each count.
struct RecordPaths {
    std::string primary = "/dev/mmcblk0p5";
    std::string secondary = "/tmp/hostcfg.backup"; // empty: there is none
};

class SuuInfo {
  public:
    // This terminal's hardware platform.
    static const std::string sThePlatform;

    explicit SuuInfo(RecordPaths recordPaths = {});
    ~SuuInfo();
    SuuInfo(const SuuInfo&) = delete;
    SuuInfo& operator=(const SuuInfo&) = delete;

    // Loads the record and builds the pools. False, with the reason in the log and isInitialized() false,
    // when that fails; it may be tried again.
    [[nodiscard]] bool initialize();
    bool isInitialized() const { return initialized; }

    // Whether any partition of this pool name holds exactly this version. False when nothing is loaded.
    bool isCurrentContentPart(const std::string& name, unsigned char major, unsigned char minor,
                              unsigned char build) const;

    // Whether an entry of an image's manifest has to be downloaded: it is for this platform, and no partition
    // of its pool holds its version. Null is not needed.
    bool isDownloadNeeded(const SuumBlob::Element* element) const;

    // A time in seconds since 1970-01-01 UTC, for example "1970.01.01 00:00:00".
    std::string getTimeString(int seconds) const;

    // Writes all that is known to the log, line by line.
    void logSuuInfo();

  private:
    suul_ctx_t suul{};
    hostconfig_t hostconfig{};
    bool initialized = false;
    const RecordPaths paths;
};

#endif
