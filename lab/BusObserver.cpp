#include "lab/BusObserver.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace lab {

namespace {

std::string hex(const void* data, unsigned length) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        const unsigned byte = static_cast<const unsigned char*>(data)[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace

BusObserver::BusObserver() : mThread([this] { run(); }) {
    while (mReady == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (mReady < 0 || !mSender.connect("observer.sender", mSenderLoop)) {
        mStopping = true;
        mStop.interrupt();
        mThread.join();
        throw std::runtime_error("no bus to observe");
    }
}

BusObserver::~BusObserver() {
    mStopping = true;
    mStop.interrupt();
    mThread.join();
}

void BusObserver::run() {
    common::FdLoopEventHandler breakOnly;
    const bool ready = mLoop.fdRegister(mStop.getFd(), breakOnly) && mBus.connect("observer", mLoop) &&
                       mBus.addFilter(nullptr) && mBus.registerSignalHandler(nullptr, this);
    mReady = ready ? 1 : -1;
    while (ready && !mStopping)
        mLoop.run();
    mBus.disconnect();
}

void BusObserver::onCBusSignal(const char* name, const void* data, unsigned length) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto own = std::find(mSent.begin(), mSent.end(), name);
    if (own != mSent.end()) {
        mSent.erase(own);
        return;
    }
    mSignals.push_back(name + (length > 0 ? " " + hex(data, length) : ""));
}

std::vector<std::string> BusObserver::signals() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mSignals;
}

void BusObserver::send(const std::string& name) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSent.push_back(name);
    }
    if (!mSender.sendSignal(name.c_str(), nullptr, 0))
        throw std::runtime_error("cannot send " + name);
}

} // namespace lab
