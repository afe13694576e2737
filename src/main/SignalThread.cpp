#include "main/SignalThread.h"

#include "common/VexStreamLog.h"
#include <cstring>

namespace {

sigset_t sMaskBefore; // written once, before any thread exists

// What this process starts gets the mask that this process got.
void restoreMask() {
    pthread_sigmask(SIG_SETMASK, &sMaskBefore, nullptr);
}

} // namespace

SignalThread::SignalThread(void (*handler)(int)) : mHandler(handler) {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGTERM);
    sigaddset(&mSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &mSignals, &sMaskBefore);
    pthread_atfork(nullptr, nullptr, restoreMask);
    const int error = start();
    if (error == 0)
        return;
    // Without the thread the signals have to end the process as they do by default.
    pthread_sigmask(SIG_UNBLOCK, &mSignals, nullptr);
    VEX_LOG(LogError) << "SignalThread::SignalThread() Failed to start (" << strerror(error) << ").";
}

SignalThread::~SignalThread() {
    cancelAndJoin();
}

void* SignalThread::run() {
    const CancellationBlock block;
    while (true) {
        int sig = 0;
        int error = 0;
        {
            const CancellationPoint point;
            error = sigwait(&mSignals, &sig);
        }
        if (error == 0)
            mHandler(sig);
    }
    return nullptr;
}
