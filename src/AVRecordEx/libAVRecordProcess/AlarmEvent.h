// The alarm-event thread of a run.
#pragma once

// Starts it for the current record file; it ends when the run is over or the next one is
// started, and needs no join.  Returns 0, or the error number of the thread that could not be created.
int AlarmEventStart();

// The record loop looks at the alarm board for the thread: it is awake anyway, and for the thread waking up is nearly
// all that a look costs.  The thread rests while none of its alarms is on and no event is open.
class AlarmWatch {
  public:
    AlarmWatch();
    ~AlarmWatch();
    AlarmWatch(const AlarmWatch&) = delete;
    AlarmWatch& operator=(const AlarmWatch&) = delete;

    // One pass of the record loop, of which there is one every 20 ms.
    void Pass();

  private:
    int passes_ = 0;
};
