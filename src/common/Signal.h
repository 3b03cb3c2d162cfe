// A signal that one thread gives and another waits for, with a bound, whatever happens to the wall clock.
//
// Constant-initialised; the first Clear makes it ready for use.  Set and the waits may race; Clear is for a moment when
// nobody uses it.
#pragma once

#include <pthread.h>

class Signal {
  public:
    void Clear();
    void Set();
    // True once it was set, at once or within `milliseconds`.
    bool WaitFor(int milliseconds);
    // The same, and it can be set again.
    bool TakeWithin(int milliseconds);

  private:
    bool Wait(int milliseconds, bool takes);

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t set_ = PTHREAD_COND_INITIALIZER;
    bool is_made_ = false;  // `set_` measures waits by the steady clock
    bool is_set_ = false;
};
