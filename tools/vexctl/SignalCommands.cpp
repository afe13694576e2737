#include "Commands.h"
#include "HexText.h"
#include "KnownNames.h"
#include "vex/CBusConnection.h"
#include "vex/FdLoop.h"
#include <algorithm>
#include <cmath>
#include <iostream>
#include <random>
#include <unistd.h>

namespace {

// How often a listener looks whether the bus is still there.
constexpr unsigned sBusCheckMs = 500;

// A name that no other vexctl has, also in another process id namespace.
std::string clientName() {
    const unsigned random = std::random_device()();
    return "vexctl-" + std::to_string(getpid()) + "-" + toHex(&random, sizeof random);
}

// Prints signals until it has seen enough, the time is over, or the bus is gone.
class Listener : public common::CBusMessageHandler {
  public:
    explicit Listener(const ListenOptions& options) : mOptions(options) {}

    int run() {
        if (!mBus.connect(clientName().c_str(), mLoop) || !mBus.addFilter(mOptions.prefix.c_str()) ||
            !mBus.registerSignalHandler(nullptr, this))
            return complain(sFailed, mBus.lastError());
        if (!arm())
            return complain(sFailed, "cannot set up the event loop");
        while (mStatus == sRunning)
            mLoop.run();
        return mStatus;
    }

    void onCBusSignal(const char* name, const void* data, unsigned length) override {
        if (mStatus != sRunning)
            return;
        std::string line(name);
        std::replace_if(
            line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
        if (length > 0)
            line += " " + toHex(data, length);
        const std::string meaning = explainSignal(name, data, length);
        if (!meaning.empty())
            line += " (" + meaning + ")";
        std::cout << line << std::endl; // at once, for whoever reads along
        if (!std::cout)
            end(complain(sFailed, "cannot write to standard output"));
        else if (++mSeen == mOptions.count.value_or(0))
            end(sDone);
    }

  private:
    class Tick : public common::FdLoopTimeoutHandler {
      public:
        Tick(Listener& listener, void (Listener::*action)()) : mListener(listener), mAction(action) {}
        bool onFdLoopTimerTimeout() override {
            (mListener.*mAction)();
            return true;
        }

      private:
        Listener& mListener;
        void (Listener::*const mAction)();
    };

    static constexpr int sRunning = -1;

    bool arm() {
        mBusTimer.setInterval(sBusCheckMs);
        if (!mLoop.fdRegister(mEnd.getFd(), mBreakOnly) || !mLoop.addTimer(mBusTimer, &mOnBusTimer))
            return false;
        if (!mOptions.timeout)
            return true;
        mLimit.setInterval(static_cast<unsigned>(std::lround(*mOptions.timeout * 1000.0)));
        return mLoop.addTimer(mLimit, &mOnLimit);
    }

    void checkBus() {
        if (!mBus.connected())
            end(complain(sFailed, "the bus is gone"));
    }

    void onLimit() {
        if (mOptions.count)
            end(complain(sFailed, "time is over after " + std::to_string(mSeen) + " of " +
                                      std::to_string(*mOptions.count) + " signals"));
        else
            end(sDone);
    }

    void end(int status) {
        mStatus = status;
        mEnd.interrupt();
    }

    const ListenOptions& mOptions;
    common::FdLoop mLoop;
    common::FdLoopEvent mEnd;
    common::FdLoopEventHandler mBreakOnly;
    common::FdLoopTimer mBusTimer;
    common::FdLoopTimer mLimit;
    Tick mOnBusTimer{*this, &Listener::checkBus};
    Tick mOnLimit{*this, &Listener::onLimit};
    common::CBusConnection mBus;
    unsigned mSeen = 0;
    int mStatus = sRunning;
};

} // namespace

int signalSend(const std::string& name, const std::string& hex) {
    std::vector<unsigned char> payload;
    if (!fromHex(hex, payload))
        return complain(sWrongUse, "signal send: '" + hex + "' is not hexadecimal, two digits per byte");
    common::FdLoop loop;
    common::CBusConnection bus;
    if (!bus.connect(clientName().c_str(), loop) ||
        !bus.sendSignal(name.c_str(), payload.data(), static_cast<unsigned>(payload.size())))
        return complain(sFailed, bus.lastError());
    bus.disconnect();
    return sDone;
}

int signalListen(const ListenOptions& options) {
    return Listener(options).run();
}
