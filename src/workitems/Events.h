// The items that travel one way: what the configuration monitor reports, and what the master tells itself.
#ifndef WORKITEMS_EVENTS_H
#define WORKITEMS_EVENTS_H

#include "workitems/FwWorkItem.h"

// The configuration as found at start. The master keeps the one that comes in a process's life.
class ConfigDbStatusEvent : public FwWorkItem {
  public:
    enum ConfigDbStatus : int {
        ConfigNoUpdateNeeded = 0,
        ConfigGetNewFirmware = 1,
        ConfigWaitForUpdate = 2,
        ConfigStatusUnspecified = 3
    };

    ConfigDbStatusEvent(ConfigDbStatus status, const std::string& version, const std::string& url,
                        bool forceUpdate)
        : FwWorkItem(FwWorkItem::ConfigDbStatusEvent),
          mConfigDbStatus(status),
          mVersion(version),
          mUrl(url),
          mForceUpdate(forceUpdate) {}

    std::string getStatus() const override { return getString(mConfigDbStatus); }

    // Printed name of a status; "<unknown config status>" outside the enumeration.
    static const char* getString(ConfigDbStatus status);

    ConfigDbStatus getConfigDbStatus() const { return mConfigDbStatus; }
    std::string getVersion() const { return mVersion; }
    std::string getUrl() const { return mUrl; }
    bool isForceUpdate() const { return mForceUpdate; }

    // Path of an update image that is no longer wanted; empty when there is none.
    std::string getDeleteReadyForUpdateFile() const { return mDeleteReadyForUpdateFile; }
    void setDeleteReadyForUpdateFile(const std::string& filename) { mDeleteReadyForUpdateFile = filename; }

  private:
    const ConfigDbStatus mConfigDbStatus;
    const std::string mVersion;
    const std::string mUrl;
    const bool mForceUpdate;
    std::string mDeleteReadyForUpdateFile;
};

// The configured version differs from the installed one. Deleted by the master.
class NewFirmwareNeededEvent : public FwWorkItem {
  public:
    // Whether an update image of the configured version is flagged as ready for installation.
    enum ReadyFlag : int { ReadyFlagUnknown = 0, ReadyFlagAbsent = 1, ReadyFlagPresent = 2 };

    NewFirmwareNeededEvent(const std::string& url, const std::string& version, bool forceUpdate)
        : FwWorkItem(FwWorkItem::NewFirmwareNeededEvent),
          mUrl(url),
          mVersion(version),
          mForceUpdate(forceUpdate) {}

    std::string getStatus() const override { return "No status"; }
    std::string getUrl() const { return mUrl; }
    std::string getVersion() const { return mVersion; }
    bool isForceUpdate() const { return mForceUpdate; }

    ReadyFlag getReadyFlag() const { return mReadyFlag; }
    void setReadyFlag(ReadyFlag flag) { mReadyFlag = flag; }

    // Path of an update image of another version, flagged no more; empty when there is none.
    std::string getDeleteReadyForUpdateFile() const { return mDeleteReadyForUpdateFile; }
    void setDeleteReadyForUpdateFile(const std::string& filename) { mDeleteReadyForUpdateFile = filename; }

  private:
    const std::string mUrl;
    const std::string mVersion;
    const bool mForceUpdate;
    ReadyFlag mReadyFlag = ReadyFlagUnknown;
    std::string mDeleteReadyForUpdateFile;
};

// The image start is on disk: find the needed parts. Deleted by the master.
class GotZempStartEvent : public FwWorkItem {
  public:
    GotZempStartEvent() : FwWorkItem(FwWorkItem::GotZempStartEvent) {}
    std::string getStatus() const override { return "No status"; }
};

// The installed software is not known: load it. Deleted by the master.
class SuuInfoInvalidEvent : public FwWorkItem {
  public:
    SuuInfoInvalidEvent() : FwWorkItem(FwWorkItem::SuuInfoInvalidEvent) {}
    std::string getStatus() const override { return "No status"; }
};

// End the run loop. One object may stand in several queues; a worker never deletes it, the master deletes
// those that arrive in its own queue.
class ExitRunLoop : public FwWorkItem {
  public:
    ExitRunLoop() : FwWorkItem(FwWorkItem::ExitRunLoop) {}
    std::string getStatus() const override { return "No status"; }
};

#endif
