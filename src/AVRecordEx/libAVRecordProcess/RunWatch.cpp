#include "RunWatch.h"

#include <mutex>

#include "AlarmEvent.h"
#include "Clock.h"
#include "Mutex.h"
#include "RecordCard.h"
#include "RecorderStatus.h"
#include "Signal.h"
#include "libAVRecordProcess.h"
#include "libLog.h"

namespace {

constexpr int64_t kPeriod = 20000;       // us between two passes
constexpr int64_t kDue = kPeriod / 2;    // us after one: the next is nearer than it
constexpr int64_t kLater = kPeriod / 4;  // us that a pass may wait for the picture that makes it

class Watch {
  public:
    void Begin(const RecordRun& run, AlarmWatch& alarms) {
        const std::lock_guard turn(turn_);
        run_ = &run;
        alarms_ = &alarms;
        found_ = Look::GoOn;
        call_.Clear();
    }
    void End() {
        const std::lock_guard turn(turn_);
        run_ = nullptr;
    }

    // What this pass found, or one that a picture made.
    Look Pass() {
        const std::lock_guard turn(turn_);
        PassAt(SteadyUs());
        return found_;
    }

    // The main thread's next pass: the one after this, or the one after that where a picture comes meanwhile.
    void SleepUntilNext() {
        const int64_t until_picture = UntilPicture();
        if (until_picture > 0 && until_picture <= kPeriod + kLater) {
            call_.TakeWithin(static_cast<int>((until_picture + kPeriod) / 1000));
        } else {
            SleepMs(kPeriod / 1000);
        }
    }

    // Left out while the main thread has the turn: then it makes the pass.
    void PassWithPicture() {
        if (!turn_.try_lock()) {
            return;
        }
        const std::lock_guard turn(turn_, std::adopt_lock);
        const int64_t now = SteadyUs();
        interval_ = now - picture_;
        picture_ = now;
        if (run_ == nullptr || now - pass_ < kDue) {
            return;
        }
        PassAt(now);
        if (found_ != Look::GoOn) {
            call_.Set();
        }
    }

  private:
    void PassAt(int64_t now) {
        pass_ = now;
        if (found_ == Look::GoOn) {
            found_ = LookForEnd(*run_);
        }
        if (found_ == Look::GoOn) {
            alarms_->Pass();
        }
    }
    int64_t UntilPicture() {
        const std::lock_guard turn(turn_);
        return picture_ + interval_ - SteadyUs();
    }

    Mutex turn_;                      // held for a pass
    const RecordRun* run_ = nullptr;  // null: nothing is watched
    AlarmWatch* alarms_ = nullptr;
    Look found_ = Look::GoOn;
    int64_t pass_ = 0;      // when the last one was made
    int64_t picture_ = 0;   // when the last one was written
    int64_t interval_ = 0;  // between the last two
    Signal call_;           // a picture's pass found a reason
};
constinit Watch g_watch;

void (*g_chore)() = nullptr;

void DoChores(long* last_second) {
    if (const long second = KQ_COMMON_GetUptime(); second != *last_second) {
        *last_second = second;
        CardRetryRefused();
        if (g_chore != nullptr) {
            g_chore();
        }
    }
    RecorderStatusPublish();
}

}  // namespace

Look WatchRun(const RecordRun& run) {
    long last_second = run.start_uptime;
    AlarmWatch alarms;
    g_watch.Begin(run, alarms);
    while (true) {
        DoChores(&last_second);
        const Look look = g_watch.Pass();
        if (look != Look::GoOn) {
            g_watch.End();
            return look;
        }
        g_watch.SleepUntilNext();
    }
}

// A log that may hold its writer up must not cost a picture: then the main thread makes every pass.
void WatchWithPicture() {
    if (LogMayWait() == 0) {
        g_watch.PassWithPicture();
    }
}

void RecordChoreSet(void (*chore)(void)) {
    g_chore = chore;
}
