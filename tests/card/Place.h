// A path below /tmp that nobody uses yet, and whose file or folder goes with it.
#pragma once

#include <filesystem>
#include <string>

namespace fixture {

class Place {
  public:
    Place() : path_("/tmp/card-" + std::to_string(++count_)) { std::filesystem::remove_all(path_); }
    ~Place() { std::filesystem::remove_all(path_); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    operator const std::string&() const { return path_; }
    const std::string& Path() const { return path_; }

  private:
    static inline int count_ = 0;
    std::string path_;
};

}  // namespace fixture
