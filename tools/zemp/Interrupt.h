// Ctrl-C, and the other signals that end a program from outside: what was begun is cleaned up before it ends.
#ifndef ZEMP_INTERRUPT_H
#define ZEMP_INTERRUPT_H

namespace zemp {

// While it lives, SIGINT, SIGTERM and SIGHUP are noted; a second one ends the process at once.
class InterruptScope {
  public:
    InterruptScope();
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
};

// The signal that was noted, 0 without one. From any thread.
int interruptedBy();

// Throws InputError if one was. To be called now and then by whatever takes long.
void throwIfInterrupted();

} // namespace zemp

#endif
