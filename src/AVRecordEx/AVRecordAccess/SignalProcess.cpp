#include <atomic>
#include <cerrno>
#include <csignal>

#include "AVRecordAccess.h"
#include "libAVRecordProcess.h"
#include "libLog.h"

namespace {

const char* StopText(int signo) {
    switch (signo) {
        case SIGHUP:
            return "Get a signal -- SIGHUP \n";
        case SIGINT:
            return "Get a signal -- SIGINT \n";
        case SIGQUIT:
            return "Get a signal -- SIGQUIT \n";
        case SIGKILL:
            return "Get a signal -- SIG9 \n";
        case SIGTERM:
            return "Get a signal -- SIGTERM \n";
        default:
            return nullptr;
    }
}

}  // namespace

void SignalProcess(int signo) {
    static std::atomic<int> flag{0};
    if (flag.load() == 1) {
        return;
    }
    const int interrupted_errno = errno;
    LOG_TRACE(" signo %d\n", signo);
    if (const char* const text = StopText(signo); text != nullptr) {
        LogTrace("%s", text);
        StopRecord();
        flag.store(1);
    }
    errno = interrupted_errno;
}
