// The watch for a reason to end a run: a pass every 20 ms.
//
// Waking up is more than half of what a pass costs, and a stream reader that has just written a picture is awake.  It
// makes the pass that is due then, and the main thread sleeps through it.
#pragma once

#include "RecordRun.h"

// The main thread's: returns when the run is over, or when the configuration went away.
Look WatchRun(const RecordRun& run);

// A stream reader's, after a picture of the recorded stream: makes the pass that is due, if any.  Never waits for
// the main thread.
void WatchWithPicture();
