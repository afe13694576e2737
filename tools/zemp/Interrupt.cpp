#include "zemp/Interrupt.h"

#include "zemp/InputError.h"
#include <csignal>

namespace zemp {

namespace {

constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t sSignal = 0;
struct sigaction sSaved[3];

void note(int number) {
    sSignal = number;
}

} // namespace

InterruptScope::InterruptScope() {
    sSignal = 0;
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (int i = 0; i < 3; ++i) {
        sigaction(Signals[i], nullptr, &sSaved[i]);
        if (sSaved[i].sa_handler != SIG_IGN) // as a shell sets it for what runs in the background
            sigaction(Signals[i], &action, nullptr);
    }
}

InterruptScope::~InterruptScope() {
    for (int i = 0; i < 3; ++i)
        sigaction(Signals[i], &sSaved[i], nullptr);
}

int interruptedBy() {
    return sSignal;
}

void throwIfInterrupted() {
    if (sSignal != 0)
        throw InputError("interrupted");
}

} // namespace zemp
