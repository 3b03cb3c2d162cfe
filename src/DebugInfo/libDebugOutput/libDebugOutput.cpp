#include "libDebugOutput.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "Clock.h"
#include "Mutex.h"
#include "Thread.h"
#include "libLog.h"

// A line of the console's own, whether the log is on or not.
#define REPORT(text, ...) PrintToStandardError("%s %d" text, __func__, __LINE__, ##__VA_ARGS__)

namespace {

constexpr int kListenWaitMs = 1005;
constexpr int kClientWaitMs = 500;
constexpr int kSendBuffer = 1 << 20;
constexpr size_t kReceiveBuffer = 10240;

struct ConsoleThread {
    pthread_t id{};
    bool started = false;
};

Mutex g_control;  // one start or stop at a time; guards the two threads, the console's threads never take it
ConsoleThread g_listener;
ConsoleThread g_receiver;
std::atomic<int> g_listen_fd{-1};  // written under g_control
std::atomic<int> g_client_fd{-1};  // set by the listening, taken back by the receiving thread
std::atomic<bool> g_threads_shall_run{false};
std::atomic<bool> g_is_open{false};  // the marker was there at the last look

void CloseDescriptor(std::atomic<int>& fd) {
    if (const int old = fd.exchange(-1); old >= 0) {
        close(old);
    }
}

bool ReadyWithin(int fd, short events, int milliseconds, short* ready) {
    pollfd wanted{fd, events, 0};
    const int count = poll(&wanted, 1, milliseconds);
    *ready = wanted.revents;
    return count > 0;
}

// The client belongs to the receiving thread from the moment that client_fd names it, so it is made
// ready before.
void Accept() {
    REPORT("\n");
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int fd = accept4(g_listen_fd, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    // The port is shown as it stands in the address, in network byte order: viewers know it so.
    REPORT(" : A stupid connect!ip = %s, port = %d\n", address, peer.sin_port);
    PrintToStandardError("///////%s %d : ..........fd = %d\n", __func__, __LINE__, fd);
    if (fd < 0) {
        REPORT(": Accept fd < 0\n");
        SleepMs(1000);
        return;
    }
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (redirectionOutput(fd) == -4) {  // out of descriptors: let the client try again later
        close(fd);
        return;
    }
    g_client_fd = fd;
}

void* ListenSocketThread(void*) {
    SetThreaTskName("ListenSocketThread");
    REPORT(": fd = %d\n", g_listen_fd.load());
    while (g_threads_shall_run) {
        short ready = 0;
        if (ReadyWithin(g_listen_fd, POLLIN, kListenWaitMs, &ready) && g_threads_shall_run) {
            if (g_client_fd >= 0) {  // one client at a time: the next ones wait in the backlog
                SleepMs(200);
                continue;
            }
            Accept();
        }
        if (g_threads_shall_run) {
            SleepMs(500);
        }
    }
    REPORT(": Thread end!\n");
    return nullptr;
}

// Throws away what the client sent.  False once it has left.
bool Drain(int fd) {
    char bytes[kReceiveBuffer];
    const ssize_t received = recv(fd, bytes, sizeof bytes, 0);
    return received > 0 || (received < 0 && (errno == EAGAIN || errno == EINTR));
}

void* SendRecvSocketThread(void*) {
    SetThreaTskName("SendRecvSocketThread");
    while (g_threads_shall_run) {
        const int fd = g_client_fd;
        if (fd < 0) {
            SleepMs(200);
            continue;
        }
        short ready = 0;
        if (ReadyWithin(fd, POLLIN | POLLOUT, kClientWaitMs, &ready) && (ready & ~POLLOUT) != 0 && !Drain(fd)) {
            redirectionOutputCancle();
            close(fd);
            REPORT(": Command disconnect\n");
            g_client_fd = -1;
        }
        SleepMs(500);
    }
    REPORT(": Thread end!\n");
    return nullptr;
}

bool Start(ConsoleThread& thread, void* (*run)(void*)) {
    thread.started = StartThread(thread.id, ThreadEnd::kJoined, run, nullptr) == 0;
    return thread.started;
}

void Join(ConsoleThread& thread) {
    if (thread.started) {
        pthread_join(thread.id, nullptr);
        thread.started = false;
    }
}

int SocketError(const char* function, int line, const char* what) {
    PrintToStandardError("%s %s %d: %s error. errno = %d\n", "libDebugOutput", function, line, what, errno);
    return -1;
}

int Listen(unsigned short port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    g_listen_fd = fd;
    if (fd < 0) {
        return SocketError("SetupNetwork", __LINE__, "Create socket");
    }
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        return SocketError("SetupNetwork", __LINE__, "Set SO_REUSEADDR");
    }
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = htons(port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        return SocketError("SetupNetwork", __LINE__, "Bind");
    }
    PrintToStandardError("create tcp connect success %d,start listen...\n", fd);
    return listen(fd, 5) == 0 ? 0 : SocketError("SetupNetwork", __LINE__, "Start listen");
}

// Threads that were begun while the console was stopped (SetupNetwork alone) end at once.
void JoinEnding() {
    if (!g_threads_shall_run) {
        Join(g_listener);
        Join(g_receiver);
    }
}

int SetupNetworkLocked(unsigned short port) {
    if (g_listener.started) {
        return 0;
    }
    CloseDescriptor(g_listen_fd);  // an earlier attempt may have failed with the socket open
    if (Listen(port) != 0) {
        return -1;
    }
    return Start(g_listener, ListenSocketThread) && Start(g_receiver, SendRecvSocketThread) ? 0 : -1;
}

}  // namespace

int libDebugOutputStart(unsigned short port) {
    char marker[] = DEBUG_OUTPUT_MARKER;
    const bool wanted = CheckFileExist(marker) == 0;
    if (g_is_open.exchange(wanted) == wanted) {
        return 0;
    }
    if (wanted) {
        REPORT(" :Run Debuginfo++++\n");
        DOStart(port);
    } else {
        REPORT(" :Stop Debuginfo----\n");
        DOStop();
    }
    return 0;
}

int DOStart(unsigned short port) {
    const std::lock_guard guard(g_control);
    std::signal(SIGPIPE, SIG_IGN);
    JoinEnding();
    g_threads_shall_run = true;
    SetupNetworkLocked(port);
    return 0;
}

int DOStop(void) {
    const std::lock_guard guard(g_control);
    g_threads_shall_run = false;
    if (g_listen_fd >= 0) {
        shutdown(g_listen_fd, SHUT_RDWR);  // ends the listening thread's wait at once
    }
    Join(g_listener);
    Join(g_receiver);
    redirectionOutputCancle();
    CloseDescriptor(g_listen_fd);
    CloseDescriptor(g_client_fd);
    return 0;
}

int SetupNetwork(unsigned short port) {
    const std::lock_guard guard(g_control);
    JoinEnding();
    return SetupNetworkLocked(port);
}

int SetThreaTskName(const char* name) {
    return prctl(PR_SET_NAME, name);
}

int CheckFileExist(char* FileName) {
    return FileName == nullptr ? -1 : access(FileName, F_OK);
}

int ProcessInfomation(unsigned short) {
    return 0;
}
