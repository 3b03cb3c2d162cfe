#include "ControlSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "Descriptor.h"

namespace desk {
namespace {

constexpr size_t kLongestLine = 4096;
constexpr timeval kPatience = {2, 0};  // with a caller that sends or takes nothing

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long for a socket: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

bool Connect(int fd, const std::string& path) {
    const sockaddr_un address = AddressOf(path);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

std::string ReadUntilEnd(int fd, char end) {
    std::string text;
    for (char c = 0; text.size() < kLongestLine && read(fd, &c, 1) == 1 && (end == '\0' || c != end);) text += c;
    return text;
}

}  // namespace

ControlSocket::ControlSocket(const std::string& path)
    : path_(path), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool taken = Connect(probe.Get(), path);
    if (!taken) unlink(path.c_str());  // left by one that was killed
    const sockaddr_un address = AddressOf(path);
    if (taken || bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 4) != 0) {
        close(listener_);
        throw std::runtime_error(taken ? "another desk camera is running here (" + path + ")"
                                       : "cannot listen at " + path);
    }
}

ControlSocket::~ControlSocket() {
    close(listener_);
    unlink(path_.c_str());
}

void ControlSocket::Serve(int milliseconds, const std::function<std::string(const std::string&)>& answer) {
    pollfd waiting{listener_, POLLIN, 0};
    if (poll(&waiting, 1, milliseconds) <= 0) return;
    const Descriptor caller(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
    if (caller.Get() < 0) return;
    setsockopt(caller.Get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    setsockopt(caller.Get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    const std::string text = answer(ReadUntilEnd(caller.Get(), '\n')) + "\n";
    send(caller.Get(), text.data(), text.size(), MSG_NOSIGNAL);
}

std::string AskDeskCamera(const std::string& path, const std::string& line) {
    const Descriptor camera(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!Connect(camera.Get(), path)) throw std::runtime_error("no desk camera is running here (" + path + ")");
    const std::string text = line + "\n";
    if (send(camera.Get(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the desk camera does not listen");
    }
    return ReadUntilEnd(camera.Get(), '\0');
}

}  // namespace desk
