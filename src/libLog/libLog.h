/* The process-wide diagnostic log: tagged lines on standard error, one switch, no file.
 *
 * Owns the switch, and what it knows of standard error.  Never allocates, never locks, never touches a
 * file, never waits: a line that its reader has no room for, or whose reader has gone, is lost.
 * Any thread may log at any time, a signal handler too: a message is formatted into a buffer of the
 * call and leaves in one write.
 * Nothing is printed before LogInit and after LogCleanup.
 */
#ifndef LIB_LOG_H
#define LIB_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum LogMode {
    LOG_MODE_START = 0,
    LOG_MODE_CONSOLE = 1,
    LOG_MODE_FILE = 2,
    LOG_MODE_ALL = 3,
    LOG_MODE_END = 4
} LogMode;

/* Switches the log on.  Both arguments are accepted and ignored: the output is standard error in
 * every mode.  Returns 0. */
int LogInit(char* pProgName, LogMode log_mode);

/* Switches the log off.  Returns 0. */
int LogCleanup(void);

/* Print "[Trace]: " (or the level's tag) and the formatted message, cut at 4095 characters.  No
 * newline is added.  Always return 0. */
int LogTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogWarn(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
} /* extern "C" */

/* Prints untagged, whether the log is on or not; cut at 4095 characters.  For lines that stand outside
 * the log, and like the log without ever waiting for a reader. */
void PrintToStandardError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* Standard error leads elsewhere from now on.  What it leads to is looked up once: a line for the null device is not
 * even formatted, one for a file takes one call.  Whoever replaces descriptor 2 says so, after it. */
void LogOutputChanged();

/* Whether a line can hold its writer up: standard error is a file on a medium, a pipe or a terminal, which take it in
 * their own time.  1 or 0. */
int LogMayWait();

/* The house pattern: "%s %d" with the function and the line, then the given text.
 *
 *   LOG_TRACE(": no stream %d\n", stream);            "[Trace]: StartRecord 289: no stream 7"
 *   LOG_TRACE_AS("StartRecord", " Stop Record\n");    names the operation that a helper works for
 */
#define LOG_TRACE(text, ...) LOG_TRACE_AS(__func__, text, ##__VA_ARGS__)
#define LOG_ERROR(text, ...) LOG_ERROR_AS(__func__, text, ##__VA_ARGS__)
#define LOG_WARN(text, ...) LogWarn("%s %d" text, __func__, __LINE__, ##__VA_ARGS__)
#define LOG_TRACE_AS(operation, text, ...) LogTrace("%s %d" text, operation, __LINE__, ##__VA_ARGS__)
#define LOG_ERROR_AS(operation, text, ...) LogError("%s %d" text, operation, __LINE__, ##__VA_ARGS__)
#endif
#endif
