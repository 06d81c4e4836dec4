/*
 * Starting processes: servers that report when they are ready, workers that may run as another user, shell commands and
 * interactive shells; and the user and group ids of this process.
 *
 * Thread-safe unless stated; not signal-safe. No function leaves a descriptor open or a signal's disposition changed,
 * whatever its result. Messages come from the catalogue (errmsg.h).
 */
#ifndef TMQKCI_HOSTPROCESS_H
#define TMQKCI_HOSTPROCESS_H

#include "hostdebug.h"
#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * Starts a worker: a process in a session of its own that runs cmd, with standard input from /dev/null, and standard
 * output and error appended to a log file whose path the worker finds in $KESTRUNE_CHILD_LOG. What can be NULL:
 *
 *   user        login name to run under; only a process of root can name another user. HOME, USER, LOGNAME and PATH
 *               are set for it.
 *   unused1     anything
 *   clientHost  who asked for the process, for the header of the log
 *   logName     pattern of the log's name (UtlExpandLogName), by default "%N%P%M.log", in the working folder
 *   workingDir  pattern of the working folder; the user's home by default. With a user it is also appended to
 *               $KESTRUNE_NRS_ALL of the worker, as "#dir:" and the folder.
 *
 * cmd is split at blanks, tabs and newlines; its first word is the path of the program, which is expanded
 * (HostExpandFileName) in the working folder. TRUE when the process was created, with its id in *thePid: the caller
 * waits for it. FALSE with the reason in msg, of msgLength bytes, when it was not. Whatever fails in the new process is
 * said in its log, or on standard error before there is one, and ends it with status 3.
 */
TMQKCI_API BoolType HostFork(const char* cmd, const char* user, void* unused1, char* msg, ArraySizeType msgLength,
                             const char* clientHost, const char* logName, const char* workingDir, PidType* thePid);

/*
 * Starts a server and waits until it is ready: until it has written one byte to the descriptor whose number stands in
 * its $KESTRUNE_SERVER_PIPE. The server runs in a session of its own and in the current folder, keeps standard output
 * and error, and has standard input from /dev/null. Of the descriptors above, 8 to 15 are closed.
 *
 * TRUE when the byte has come. FALSE, with the reason in msg, of msgLength bytes, when no process could be created
 * (*thePid is 0 then) and when the server ended or closed the pipe before its byte: *thePid is its id then. The caller
 * waits for the process that *thePid names, in either case. A SIGTERM (hostsignal.h) ends the wait for the
 * byte: FALSE, *thePid is 0, and the server goes on.
 */
TMQKCI_API BoolType HostForkServer(const char* cmd, char* msg, ArraySizeType msgLength, PidType* thePid);

/*
 * Runs a command with /bin/sh, under the real user and group ids, and waits for its end; SIGCHLD has its default
 * disposition and SIGVTALRM is ignored meanwhile, and this thread takes no signal. Interactive: the command stays in
 * this session and may use the terminal, whose foreground process group is put back afterwards. 0 when the command
 * exited with status 0 and also when a signal ended it; otherwise -1, with errno set when it could not be run or waited
 * for. A stopped command counts as failed and is not waited for any longer.
 */
TMQKCI_API int UnixIoSystem(const char* cmd, BoolType interactive);

/*
 * Runs a shell script, with standard input from /dev/null and all output to outFile (both names are expanded), and
 * waits for it. FALSE when it could not be waited for, and without running anything when the expanded names have more
 * than 80 characters together. A script that fails counts as performed: callers depend on it.
 */
TMQKCI_API BoolType HostPerform(const char* scriptFile, const char* outFile);

/*
 * Runs a command, or with an empty one (or NULL) an interactive $SHELL (by default /bin/sh), on the terminal and waits
 * for it. TRUE as for 0 of UnixIoSystem, and when the status was lost. HostSpawn also ignores SIGINT, SIGQUIT, SIGTTOU
 * and SIGTTIN meanwhile, so that the keyboard reaches the command alone.
 */
TMQKCI_API BoolType HostInteractiveSpawn(const char* cmd);
TMQKCI_API BoolType HostSpawn(const char* cmd);

/*
 * execv (IEEE 1003.1) of the expanded path (HostExpandFileName); argv is passed on as it stands. Returns only on
 * failure, -1 with errno set.
 */
TMQKCI_API int UnixIoExecv(const char* path, char* const argv[]);

/*
 * HostUseRealId makes the real user and group ids of the whole process the effective ones; HostSetUserId puts back the
 * effective ids that were there. Both change nothing when there is nothing to change. A failure is a guarantee failure.
 * Not thread-safe: the ids belong to the process.
 */
TMQKCI_API void HostUseRealId(void);
TMQKCI_API void HostSetUserId(void);

TMQKCI_C_END

#endif
