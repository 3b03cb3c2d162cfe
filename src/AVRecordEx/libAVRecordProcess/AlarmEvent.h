// The alarm-event thread of a run.
#pragma once

// Starts it for the current record file; it ends when g_s32AlarmEventFlag leaves 1 or the next one is
// started, and needs no join.  Returns 0, or the error number of the thread that could not be created.
int AlarmEventStart();
