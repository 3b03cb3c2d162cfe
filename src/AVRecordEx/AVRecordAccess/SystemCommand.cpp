#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "AVRecordAccess.h"
#include "libLog.h"

int System_cmd(const char* cmd) {
    static constexpr struct sigaction kDefault {};  // SIG_DFL
    const pid_t child = vfork();                    // no copy of the page tables: the target has little memory
    if (child < 0) {
        return 1;
    }
    if (child == 0) {
        sigaction(SIGPIPE, &kDefault, nullptr);  // this process ignores it, and that is inherited
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
