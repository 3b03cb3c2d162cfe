/* The debug console: while a marker file exists, one TCP client at a time receives everything the
 * process writes to standard output and standard error.  Nothing a client sends is interpreted.
 *
 * Owns the listening socket, the client, the redirection of descriptors 1 and 2 and two threads
 * ("ListenSocketThread", "SendRecvSocketThread"), all gone when DOStop returns.
 * Never stalls a writer: what a slow client has no room for is lost.
 * Any thread may call any function.  SIGPIPE is ignored process-wide from the first start on.
 */
#ifndef LIB_DEBUG_OUTPUT_H
#define LIB_DEBUG_OUTPUT_H

#ifdef __cplusplus
extern "C" {
#endif

#define DEBUG_OUTPUT_MARKER "/tmp/Debug_Port_ON" /* only its existence counts */

/* Opens the console on TCP `port` when the marker has appeared since the last call, shuts it when the
 * marker has gone.  Meant to be called every few seconds.  Returns 0. */
int libDebugOutputStart(unsigned short port);

/* Opens the console; a port that cannot be had is reported on standard error only.  Returns 0. */
int DOStart(unsigned short port);

/* Ends both threads (within 1.5 s), hands back descriptors 1 and 2 and closes every socket.  Returns 0. */
int DOStop(void);

/* The listening socket and the two threads.  Returns 0 (also when they run already), or -1 on a
 * socket error; DOStop releases what was opened in either case. */
int SetupNetwork(unsigned short port);

/* Sends descriptors 1 and 2 to `fd`, which stays the caller's and may be closed at any time.
 * Returns 0, -1 when already redirected, or -4 when a descriptor could not be duplicated (nothing
 * is redirected then). */
int redirectionOutput(int fd);

/* Gives descriptors 1 and 2 back to where they led before.  Returns 0, or -1 when not redirected. */
int redirectionOutputCancle(void);

/* Names the calling thread (cut at 15 characters).  Returns the system call's result. */
int SetThreaTskName(const char* name);

/* 0 when `FileName` exists, else -1. */
int CheckFileExist(char* FileName);

/* Does nothing; returns 0. */
int ProcessInfomation(unsigned short port);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif
