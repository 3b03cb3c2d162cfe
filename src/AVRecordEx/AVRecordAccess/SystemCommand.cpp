#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "AVRecordAccess.h"
#include "libLog.h"

int System_cmd(const char* cmd) {
    static constexpr struct sigaction kDefault {};  // SIG_DFL
    // No copy of the page tables: the target has little memory.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): the child leaves at once
    if (child < 0) {
        return 1;
    }
    if (child == 0) {
        // This process ignores SIGPIPE, and that is inherited.  A system call: it touches nothing of the parent's.
        sigaction(SIGPIPE, &kDefault, nullptr);  // NOLINT(clang-analyzer-unix.Vfork)
        execl("/bin/sh", "sh", "-c", cmd, static_cast<char*>(nullptr));
        _exit(127);
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return 0;
}

int Command_System(const char* cmd) {
    if (cmd == nullptr) {
        return -1;
    }
    const int ret = System_cmd(cmd);
    if (ret == 0) {
        return 0;
    }
    LOG_TRACE(":execute cmd [%s] failed! ret = %d\n", cmd, ret);
    return -1;
}
