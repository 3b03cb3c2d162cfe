// How the card tool fails: one exception whose text tells the card's owner what is wrong and what to do,
// and the exit codes that scripts see.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

namespace card {

enum ExitCode {
    kDone = 0,      // done, nothing to remark
    kFindings = 1,  // done, but the card has faults
    kUsage = 2,     // the command line cannot be followed
    kFailed = 3,    // the card could not be read or written
    kNothing = 4,   // nothing was recorded in the time asked for
};

class CardError : public std::runtime_error {
  public:
    explicit CardError(const std::string& what, ExitCode code = kFailed) : std::runtime_error(what), code_(code) {}
    ExitCode Code() const { return code_; }

  private:
    ExitCode code_;
};

// The card itself does not answer any more: what could not be read says nothing of what is on it.
class CardGone : public CardError {
  public:
    using CardError::CardError;
};

// A failed system call: "<what>: <text of `error`>".
inline CardError SystemError(const std::string& what, int error) {
    return CardError(what + ": " + std::strerror(error));
}

}  // namespace card
