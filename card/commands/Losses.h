// What of a card is missing or cannot be read, told in the same way by every command that shows or saves the rest.
#pragma once

#include <string>

#include "clip/Clip.h"
#include "index/CardIndex.h"
#include "text/Error.h"
#include "text/TimeText.h"
#include "volume/Volume.h"

namespace card {

// On standard error, a line a file: files that are lost with what they hold, and places in others that could not be
// read so far.  Of the whole card, or of what was selected.  kFindings when there are any.
ExitCode TellLosses(const Volume& volume, const CardIndex& index, const TimeStyle& times,
                    const Selection* selected = nullptr);

// Whether TellLosses would tell nothing.
bool AllRead(const Volume& volume, const CardIndex& index, const Selection* selected = nullptr);

// That `out` was kept, for what was read now is not all.
void TellKept(const std::string& out, const std::string& beside);

// What to say when nothing of what was selected is there: its files are lost, or nothing was recorded.
CardError NothingThere(const Volume& volume, const CardIndex& index, const Selection& selected);

}  // namespace card
