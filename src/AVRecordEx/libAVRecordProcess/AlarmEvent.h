// The alarm-event thread of a run.
#pragma once

// Starts it for the current record file; it ends when the run is over or the next one is
// started, and needs no join.  Returns 0, or the error number of the thread that could not be created.
int AlarmEventStart();
