// What is recorded when the power goes: each a script for the recorder, short, around one of its moments.
#pragma once

#include <vector>

#include "Recorder.h"

namespace cuts {

struct Scenario {
    const char* name;
    Script before;  // on the card already
    Script taped;
    uint32_t files = 3;  // of the ring
};

const std::vector<Scenario>& Scenarios();

// What follows a first cut.
Script SecondRun();

}  // namespace cuts
