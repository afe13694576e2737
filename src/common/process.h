/* Child processes, with C linkage. Failures are logged at priority 3.
 *
 * A command is split at blanks, quotes keeping blanks together; no shell is involved. Its first word is the
 * program, looked up in PATH. A program that cannot be run ends the child with status 127.
 */
#ifndef COMMON_PROCESS_H
#define COMMON_PROCESS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Flags of _proc_spawn(). */
enum ProcFlags {
    ProcNullStdin = 1,  /* standard input from /dev/null */
    ProcNullStdout = 2, /* standard output to /dev/null */
    ProcNullStderr = 4, /* standard error to /dev/null */
    ProcCloseFds = 8,   /* close descriptors 0 to 31 first */
    ProcDetach = 16,    /* in a session of its own, not a child of the caller */
    ProcWait = 32       /* wait for the child, or with ProcDetach for the one in between */
};

/* One waitpid() with these options. The pid if the child has ended (or changed, as the options say), and then
 * `status`, unless null, receives its exit status or the number of the signal that ended it. 0 if it still
 * runs or the wait was interrupted; negative on error. */
int _proc_checkpid(int pid, int* status, int options);

/* Asks without waiting. As _proc_checkpid(). */
int proc_checkpid(int pid, int* status);

/* Waits for the child to end. Its exit status, or the number of the signal that ended it; negative on error.
 */
int proc_waitpid(int pid);

/* Starts a child process. By flags: its pid; its exit status with ProcWait; the pid of the detached process
 * with ProcDetach. -1 if the command is empty or null, or nothing could be started. */
int _proc_spawn(int flags, const char* command);

/* Runs the command without standard streams. Its exit status, 127 if there is no such program, or negative.
 */
int proc_run(const char* command);

/* Starts the command without standard streams. The child's pid, which the caller waits for, or -1. */
int proc_spawn(const char* command);

/* Starts the command detached, without standard streams. Its pid, or -1. A program that cannot be run is
 * seen only in the log. */
int proc_daemon(const char* command);

#ifdef __cplusplus
}
#endif

#endif
