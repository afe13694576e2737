// A client of the bus that notes every signal, on a thread of its own, and sends signals too.
#ifndef LAB_BUSOBSERVER_H
#define LAB_BUSOBSERVER_H

#include "vex/CBusConnection.h"
#include "vex/FdLoop.h"
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lab {

class BusObserver : private common::CBusMessageHandler {
  public:
    // Connects to the bus that the environment names; from then on no signal is missed. Throws
    // std::runtime_error when there is no bus.
    BusObserver();
    ~BusObserver() override;
    BusObserver(const BusObserver&) = delete;
    BusObserver& operator=(const BusObserver&) = delete;

    // The signals so far, as "name" or "name 00ff" with the payload in hexadecimal. Those sent by the
    // observer itself are not among them.
    std::vector<std::string> signals() const;

    // Sends a signal without payload. To be called by the thread that made the observer.
    void send(const std::string& name);

  private:
    void onCBusSignal(const char* name, const void* data, unsigned length) override;
    void run();

    common::FdLoop mSenderLoop; // of the thread that made the observer, never run
    common::CBusConnection mSender;

    common::FdLoop mLoop; // of mThread
    common::FdLoopEvent mStop;
    common::CBusConnection mBus;
    std::atomic<int> mReady{0}; // 1: connected, -1: not
    std::atomic<bool> mStopping{false};

    mutable std::mutex mMutex;
    std::vector<std::string> mSignals; // guarded by mMutex
    std::vector<std::string> mSent;    // guarded by mMutex: names to leave out once each

    std::thread mThread;
};

} // namespace lab

#endif
