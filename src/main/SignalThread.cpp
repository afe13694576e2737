#include "main/SignalThread.h"

#include "common/VexStreamLog.h"
#include <cstring>

SignalThread::SignalThread(void (*handler)(int)) : mHandler(handler) {
    sigemptyset(&mSignals);
    sigaddset(&mSignals, SIGINT);
    sigaddset(&mSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
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
