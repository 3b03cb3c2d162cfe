#include "commands/StopSignals.h"

#include <signal.h>

#include <iterator>

#include "text/Error.h"

namespace card {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t stop_signal = 0;  // written by the handler alone
struct sigaction before[std::size(kSignals)];

}  // namespace

StopSignals::StopSignals() {
    struct sigaction action {};
    action.sa_handler = [](int signal) { stop_signal = signal; };
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &action, &before[i]);
}

StopSignals::~StopSignals() {
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &before[i], nullptr);
}

void StopSignals::ThrowIfStopped() const {
    if (stop_signal != 0) throw CardError("Stopped; nothing was written.");
}

}  // namespace card
