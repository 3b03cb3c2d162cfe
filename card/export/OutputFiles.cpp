#include "export/OutputFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "text/Error.h"
#include "text/TimeText.h"

namespace card {

namespace {

constexpr char kStdout[] = "/dev/stdout";

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BeforeEnding(const std::string& path, const std::string& text) {
    const size_t slash = path.rfind('/');
    size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = path.size();
    return path.substr(0, dot) + text + path.substr(dot);
}

}  // namespace

void RequireSpace(const std::string& out, uint64_t bytes) {
    const std::string folder = FolderOf(out);
    struct statvfs space {};
    if (statvfs(folder.c_str(), &space) == 0 && uint64_t{space.f_bavail} * space.f_frsize < bytes) {
        throw CardError("There are " + Bytes(uint64_t{space.f_bavail} * space.f_frsize) + " free in " + folder +
                        ", and " + Bytes(bytes) + " may be needed.");
    }
}

OutputFiles::OutputFiles(std::string path, Mode mode) : path_(std::move(path)), mode_(mode) {
    RequireFree(path_);
}

OutputFiles::~OutputFiles() {
    for (size_t i = committed_; i < temporary_.size(); ++i) unlink(temporary_[i].c_str());
}

std::string OutputFiles::Name(size_t part) const {
    return part == 0 ? path_ : BeforeEnding(path_, std::string("-").append(std::to_string(part + 1)));
}

bool OutputFiles::AnyThere() const {
    return std::any_of(final_.begin(), final_.end(),
                       [](const std::string& name) { return access(name.c_str(), F_OK) == 0; });
}

void OutputFiles::StepAside() {
    constexpr int kTries = 1000;
    const std::string asked = path_;
    for (int i = 1; i <= kTries; ++i) {
        path_ = BeforeEnding(asked, std::string("-incomplete").append(i == 1 ? "" : std::to_string(i)));
        for (size_t part = 0; part < final_.size(); ++part) final_[part] = Name(part);
        if (!AnyThere()) return;
    }
    throw CardError(asked + " is there already, and so is " + path_ + "; give another name", kUsage);
}

void OutputFiles::RequireFree(const std::string& name) const {
    if (mode_ != Mode::New || access(name.c_str(), F_OK) != 0) return;
    throw CardError(name + " is there already; --force overwrites it", kUsage);
}

const std::string& OutputFiles::Next() {
    if (mode_ == Mode::ToStdout) {
        if (!final_.empty()) {
            throw CardError(
                "codec, picture size or sound change there, and one stream has one of each: export to a file");
        }
        final_.push_back("standard output");
        stdout_ = kStdout;
        return stdout_;
    }
    const std::string name = Name(final_.size());
    RequireFree(name);
    const std::string temporary = name + "." + std::to_string(getpid()) + ".part";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) throw SystemError(name, errno);
    close(fd);
    final_.push_back(name);
    temporary_.push_back(temporary);
    return temporary_.back();
}

bool OutputFiles::Commit(bool whole) {
    const bool aside = !whole && mode_ == Mode::Overwrite && AnyThere();
    if (aside) StepAside();
    for (; committed_ < temporary_.size(); ++committed_) {
        RequireFree(final_[committed_]);  // somebody else may have been faster
        if (std::rename(temporary_[committed_].c_str(), final_[committed_].c_str()) != 0) {
            throw SystemError(final_[committed_], errno);
        }
    }
    return aside;
}

}  // namespace card
