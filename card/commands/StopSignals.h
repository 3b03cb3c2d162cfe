// Stopping a command in the midst of its work.
#pragma once

namespace card {

// While it lives, a stop signal is noted instead of ending the process, so that half a file can be removed.
class StopSignals {
  public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    void ThrowIfStopped() const;  // CardError
};

}  // namespace card
