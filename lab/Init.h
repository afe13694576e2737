// The first process of a private system: starts one program, passes signals on to everything that runs there,
// and collects what ends.
#ifndef LAB_INIT_H
#define LAB_INIT_H

namespace lab {

// Runs `arguments` (terminated by null) and returns when no process is left: the exit status of the last one
// to end, or 128 and the signal's number; 127 if the program cannot be started. A program that turns itself
// into a daemon is thus followed to its end. SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGUSR1 and SIGUSR2 go to all
// other processes. When it is ready to pass signals on it writes one byte to the descriptor `ready` and
// closes it.
int runInit(char** arguments, int ready);

} // namespace lab

#endif
