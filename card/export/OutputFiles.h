// Files that appear whole or not at all.
//
// A file is written under a name of its own beside its place, and moved there when all are complete.
// What was not committed is removed when this is destroyed.  One thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace card {

// Throws CardError when the file system that `out` is to lie on has less than `bytes` free: nothing is begun that
// cannot end well.
void RequireSpace(const std::string& out, uint64_t bytes);

class OutputFiles {
  public:
    enum class Mode {
        New,        // `path` must not be there
        Overwrite,  // it may
        ToStdout,   // one file alone, written to standard output; `path` names its kind
    };

    // Throws CardError (kUsage) when `path` is there and must not be.
    OutputFiles(std::string path, Mode mode);
    ~OutputFiles();
    OutputFiles(const OutputFiles&) = delete;
    OutputFiles& operator=(const OutputFiles&) = delete;

    // Makes an empty file for the next part and returns the name to write to; the first part becomes `path`,
    // the others get "-2", "-3", ... in front of its ending.
    const std::string& Next();
    // `whole`: nothing of what was asked for is missing.  Otherwise a file that is there is kept, and these come to
    // stand beside it ("OUT-incomplete.mp4"); then true is returned.
    bool Commit(bool whole = true);

    const std::vector<std::string>& Final() const { return final_; }  // names after Commit, in order

  private:
    std::string Name(size_t part) const;
    bool AnyThere() const;
    void StepAside();
    void RequireFree(const std::string& name) const;

    std::string path_;
    Mode mode_;
    std::string stdout_;
    std::vector<std::string> final_;
    std::vector<std::string> temporary_;
    size_t committed_ = 0;
};

}  // namespace card
