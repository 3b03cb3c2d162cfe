#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Mutex.h"
#include "libDebugOutput.h"
#include "libLog.h"

namespace {

// Guards the three descriptors, all of this file's own: nobody else knows or closes them.
Mutex g_lock;
int g_client = -1;      // duplicate of the client's; -1: not redirected
int g_own_stdout = -1;  // where descriptors 1 and 2 led before
int g_own_stderr = -1;

int Duplicate(int fd) {
    return fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// Makes `number` lead where `fd` does; `number` is open at every moment, so no writer meets a gap.
bool Lead(int number, int fd) {
    int result;
    do {
        result = dup2(fd, number);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    LogOutputChanged();
    return result >= 0;
}

void CloseAll() {
    for (int* fd : {&g_client, &g_own_stdout, &g_own_stderr}) {
        if (*fd >= 0) {
            close(*fd);
        }
        *fd = -1;
    }
}

bool Redirect(int fd) {
    g_client = Duplicate(fd);
    g_own_stdout = Duplicate(STDOUT_FILENO);
    g_own_stderr = Duplicate(STDERR_FILENO);
    if (g_client < 0 || g_own_stdout < 0 || g_own_stderr < 0 || !Lead(STDOUT_FILENO, g_client)) {
        return false;
    }
    if (!Lead(STDERR_FILENO, g_client)) {
        const int cause = errno;
        Lead(STDOUT_FILENO, g_own_stdout);
        errno = cause;
        return false;
    }
    return true;
}

}  // namespace

int redirectionOutput(int fd) {
    const std::lock_guard guard(g_lock);
    if (g_client >= 0) {
        return -1;
    }
    if (!Redirect(fd)) {
        const int cause = errno;
        CloseAll();
        PrintToStandardError("%s: %s\n", "err in dup STDOUT.\n", strerror(cause));
        return -4;
    }
    return 0;
}

int redirectionOutputCancle(void) {
    const std::lock_guard guard(g_lock);
    if (g_client < 0) {
        return -1;
    }
    if (!Lead(STDOUT_FILENO, g_own_stdout)) {
        PrintToStandardError("err in cacle redirection stdout.");
    }
    if (!Lead(STDERR_FILENO, g_own_stderr)) {
        PrintToStandardError("err in cacle redirection stdout.");
    }
    CloseAll();
    return 0;
}
