// The running desk camera's ear: a local socket that takes one command line and gives back a text.
//
// Owns the socket's path; a second desk camera in the same place is refused.  One thread.
#pragma once

#include <functional>
#include <string>

namespace desk {

inline constexpr char kStandardControlPath[] = "/tmp/deskcamera.control";

class ControlSocket {
  public:
    explicit ControlSocket(const std::string& path);
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    // Waits up to `milliseconds` for a caller; `answer` turns its line into the text it gets.
    void Serve(int milliseconds, const std::function<std::string(const std::string&)>& answer);

  private:
    std::string path_;
    int listener_;
};

// Sends `line` to the desk camera that listens at `path` and returns its answer.
std::string AskDeskCamera(const std::string& path, const std::string& line);

}  // namespace desk
