// Worker that watches the terminal's configuration: tells the master which version is wanted, answers whether
// an update is needed, and flags a finished update image.
//
// It runs an event loop of its own. Bus signals, timer ticks and items are handled on its thread, one at a
// time; so run all methods but constructor and destructor. Without bus or database the thread stays idle
// until it is stopped; it does not connect again.
#ifndef WORKERS_CONFIGDBMONITOR_H
#define WORKERS_CONFIGDBMONITOR_H

#include "common/Thread.h"
#include "common/wqueue.h"
#include "seal/Gate.h"
#include "vex/CBusConnection.h"
#include "vex/ConfigDatabaseConnection.h"
#include "vex/FdLoop.h"
#include "workitems/FwWorkItem.h"
#include <atomic>
#include <pthread.h>
#include <string>

class ExitRunLoop;
class IsUpdateNeededRequest;
class SetReadyForUpdateRequest;

class ConfigDbMonitor : public Thread,
                        public common::CBusMessageHandler,
                        public common::FdLoopTimeoutHandler {
  public:
    // Time from the start to the first status, in milliseconds: the terminal's own start comes first.
    static constexpr unsigned StartIntervalMs = 180000;

    // From then on one queued item is handled per interval.
    static constexpr unsigned RunningIntervalMs = 1000;

    static constexpr unsigned BusAttempts = 100;
    static constexpr unsigned DatabaseAttempts = 5;

    // Takes requests from `workQueue`; answers and events go to `masterQueue`. `sealGate` says what an image
    // needs to be flagged. All must outlive the worker.
    ConfigDbMonitor(wqueue<FwWorkItem*>& workQueue, wqueue<FwWorkItem*>& masterQueue,
                    const seal::Gate& sealGate = seal::Gate::withoutKeys());

    // Ends the loop, or the wait between two attempts to connect, joins the thread, and detaches from bus and
    // database.
    ~ConfigDbMonitor() override;

    // The thread: connects, then handles signals, ticks and items until told to stop.
    void* run() override;

    // Connects and arms the timer for the first status. False when there is no connection.
    [[nodiscard]] bool initialize();

    // Tries for up to 103 s. False when bus or database cannot be reached.
    [[nodiscard]] bool connect();
    void disconnect();

    // Subscribes to the change notices, once. False when the bus refuses.
    bool startMonitoring();
    bool registerListeners();

    // Goes over to the running interval at once.
    void resetTimerToRunningInterval();

    // Sends the first status if that was not done, and handles at most one queued item. Keeps the timer.
    bool onFdLoopTimerTimeout() override;

    // A change of the configuration. A null name and other names are ignored.
    void onCBusSignal(const char* name, const void* data, unsigned length) override;

    // The text stored under a key; empty when it is absent, no text, or cannot be read.
    std::string getString(const char* key);

    // The configured update: URL, version as "2.03-B17", and whether it is forced.
    std::string getSwUpdateUrl();
    std::string getSwVersion();
    bool isForcedUpdate();

    // Whether the configured version is the installed one; false when either is not known.
    bool isConfiguredVersionInstalled();

    // Path of the update image that waits for installation; empty when there is none.
    std::string getReadyForFirmwareInstall();

    // Whether the configuration is complete and names another version than the installed one, and downloading
    // is allowed. Raises or clears the event of a disabled download as it finds out.
    bool isNewFirmwareNeeded();

    // Flags an update image as ready for installation and, for a forced update, asks for a reboot. False, and
    // no reboot, when there is no such file, it lacks the seal that it needs, or the flag could not be
    // written.
    [[nodiscard]] bool setReadyForFirmwareInstall(const std::string& file);

    // Removes that flag and the one of a forced update. False unless both are gone.
    bool delReadyForFirmwareInstall();

    // Raises or clears a status event. A failure is logged only.
    void setCsmEvent(unsigned id, bool on);

    // Tells the master what the configuration asks for, and tidies up flags that contradict it.
    void sendConfigDbStatus();

    void logSwVer();

    // Dispatches by type; deletes nothing. The two requests are answered whatever happens.
    void onWorkItem(FwWorkItem* item);
    void onIsUpdateNeededRequest(IsUpdateNeededRequest* request);
    void onSetReadyForUpdateRequest(SetReadyForUpdateRequest* request);

    // Ends run() after the present callback. Does not touch the item.
    void onStopWork(ExitRunLoop* item);

  protected:
    // Between two attempts to connect, in milliseconds. Tests shorten it before they start a worker.
    static unsigned sConnectPauseMs;

  private:
    // The first status in its five cases.
    enum StatusCase {
        NotNeeded,
        NothingReady,
        WrongVersionReady,
        ReadyWaits,
        ReadyIsMissing,
        ReadyHasNoSeal
    };
    StatusCase statusCase(bool needed, const std::string& ready, const std::string& version);

    // Whether an update image has all that a flag needs. A failure is logged.
    bool isVouchedFor(const std::string& image);

    static void pauseBeforeRetry();
    std::string getConfiguredVersion(char separator); // that stands before the build label
    void armTimer(unsigned intervalMs);
    void onConfigUpdated();
    void sendNewFirmwareNeeded();
    void logReason(const std::string& reason);
    bool eraseKey(const char* key);
    bool eraseKeyLocked(const char* key);
    bool writeKey(const char* key, const std::string& value);

    // Used by the worker's thread, and by the destructor when it has ended.
    common::FdLoopEventHandler wakeOnly; // registered for stopEvent: it just ends the loop's wait
    common::FdLoop fdLoop;
    common::FdLoopEvent stopEvent; // interrupted by any thread
    common::FdLoopTimer timer;
    common::CBusConnection cbus;
    common::ConfigDatabaseConnection* configDb = nullptr; // null while not connected
    wqueue<FwWorkItem*>& workQueue;
    wqueue<FwWorkItem*>& masterQueue;
    const seal::Gate& gate;
    std::string vouchedImage; // that was found good, as long as it is flagged
    std::string loggedReason; // why no update is wanted; said once, until another reason or an update comes
    bool statusSent = false;  // or replaced by a change notice

    // Shared with the thread that destroys the worker.
    std::atomic<bool> running{false};
    std::atomic<bool> stopping{false}; // for good: a stop that comes before the loop starts is not lost

    pthread_mutex_t mutex; // held during reads and erasures of the database
    bool listenersRegistered = false;
};

#endif
