/* The process-wide diagnostic log: tagged lines on standard error, one switch, no file.
 *
 * Owns the switch only.  Never allocates, never locks, never touches a file.
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

/* The house pattern: a format that begins "%s %d" (or "%s,%d"), filled with function and line. */
#define LOG_TRACE(format, ...) LogTrace(format, __func__, __LINE__, ##__VA_ARGS__)
#define LOG_ERROR(format, ...) LogError(format, __func__, __LINE__, ##__VA_ARGS__)
#define LOG_WARN(format, ...) LogWarn(format, __func__, __LINE__, ##__VA_ARGS__)
#endif
#endif
