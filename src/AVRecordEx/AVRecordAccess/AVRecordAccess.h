/* The recorder's process: stop signals, heartbeat, local settings and shell commands around the control
 * loop of main.
 *
 * Owns the process's signal handlers and the watchdog thread; decides nothing about recording.
 * Invariant: a stop signal asks the record run to end and nothing else; the control loop then syncs the
 * card and exits.
 */
#ifndef AV_RECORD_ACCESS_H
#define AV_RECORD_ACCESS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Handler of SIGHUP, SIGINT, SIGQUIT and SIGTERM: asks for the process's end, the first time only. */
void SignalProcess(int signo);

/* Starts the thread that beats the watchdog and follows the debug console's marker, every 2 s; a running one is left
 * alone.  Returns 0, also when it could not be started: WatchDogIsRunning tells (1; else 0). */
int WatchDogStart(void);
int WatchDogIsRunning(void);
void* WatchDogThread(void* arg);

/* Runs `cmd` through the shell and waits for it; any thread.  System_cmd: 0, or 1 when the shell could
 * not be started.  Command_System: 0, or -1 for that and for a null `cmd`.  The command's own exit status
 * is not looked at. */
int System_cmd(const char* cmd);
int Command_System(const char* cmd);

#define CUSTOM_SETTINGS_FILE "/var/etc/CustomTools.cfg"

/* The local tuning values, or their defaults where the file has none: record stream 0..2 (1) and length of
 * a run in seconds, 0..1200 (600).  Both are carried along only: the configuration names the stream, and a
 * run has no length.  "HandOver", 200..60000 ms (1000), is set at once: what a power cut costs. */
void ReadCustomSettings(int* nStreamType, int* nDuration);

#ifdef __cplusplus
}
#endif
#endif
