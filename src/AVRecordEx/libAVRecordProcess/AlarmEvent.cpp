// The alarm-event thread: notes in the event file which stretches of a run belong to alarms.
//
// Never touches recording: whatever fails here ends this thread and nothing else.
// Threads: one a run, detached; it waits until the one of the run before has left.
#include "AlarmEvent.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include "CardFile.h"
#include "Clock.h"
#include "FileEvents.h"
#include "Mutex.h"
#include "RecordState.h"
#include "Signal.h"
#include "Thread.h"
#include "libAVRecord.h"
#include "libLog.h"

namespace {

constexpr char kOperation[] = "AlarmEventThread";  // for the log
constexpr unsigned int kLookMs = 80;
constexpr int kPassesALook = 4;  // of the record loop
constexpr int kRestMs = 1000;    // should the record loop be held up, the thread looks for itself

struct Start {
    uint32_t run;
    uint32_t file_no;
};

std::atomic<uint32_t> g_run{0};  // number of the newest run
Mutex g_turn;                    // held by the thread at work; recording never takes it

// Where the thread waits while the record loop looks at the board for it.
class Rest {
  public:
    void WatchBegins() {
        const std::lock_guard guard(lock_);
        is_watched_ = true;
    }
    void WatchEnds() {
        const std::lock_guard guard(lock_);
        is_watched_ = false;
        if (resting_ != nullptr) {
            call_.Set();
        }
    }
    void Look() {
        const std::lock_guard guard(lock_);
        if (resting_ != nullptr && resting_->IsCalled()) {
            call_.Set();
        }
    }
    // True after a rest; false when there is none to be had, or the watch ended meanwhile: the run ends, too.
    bool Take(FileEvents& events) {
        if (!events.IsAtRest() || !Begin(events)) {
            return false;
        }
        call_.TakeWithin(kRestMs);
        return End();
    }

  private:
    bool Begin(FileEvents& events) {
        const std::lock_guard guard(lock_);
        if (is_watched_) {
            call_.Clear();  // one that came too late for the rest before
            resting_ = &events;
        }
        return is_watched_;
    }
    bool End() {
        const std::lock_guard guard(lock_);
        resting_ = nullptr;
        return is_watched_;
    }

    Mutex lock_;
    bool is_watched_ = false;        // by the record loop
    FileEvents* resting_ = nullptr;  // who may be called
    Signal call_;
};
constinit Rest g_rest;

bool IsOn(const Start& start) {
    return g_flags.run_is_on && g_run == start.run;
}

// False when the thread is to end without a word.
bool FollowRun(FileEvents& events, const Start& start) {
    using Outcome = FileEvents::Outcome;
    Outcome outcome = events.Begin();
    if (outcome == Outcome::ReadFailed) {
        LOG_ERROR_AS(kOperation, ": the events of file %u cannot be read, tried again\n", start.file_no);
    }
    while (outcome == Outcome::GoOn || outcome == Outcome::ReadFailed) {
        if (outcome != Outcome::GoOn || !g_rest.Take(events)) {
            SleepMs(kLookMs);
        }
        if (!IsOn(start)) {
            events.Save();
            return true;
        }
        outcome = outcome == Outcome::GoOn ? events.LookAtBoard() : events.Begin();
    }
    return outcome == Outcome::WriteFailed;
}

void* AlarmEventThread(void* argument) {
    const std::unique_ptr<const Start> start(static_cast<const Start*>(argument));
    const std::lock_guard turn(g_turn);
    if (!IsOn(*start)) {
        return nullptr;
    }
    const Descriptor file = card::OpenEvents(AVFILE_READ_WRITE);
    if (!file.IsOpen()) {
        return nullptr;
    }
    FileEvents events(file.Get(), start->file_no);
    if (FollowRun(events, *start)) {
        LOG_TRACE_AS(kOperation, " :AlarmEvent end !!!\n");
    }
    return nullptr;
}

}  // namespace

int AlarmEventStart() {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    std::unique_ptr<Start> start(new (std::nothrow) Start{++g_run, heads.file.m_u32FileInfoHeadNo});
    if (start == nullptr) {
        return ENOMEM;
    }
    pthread_t thread;
    const int error = StartThread(thread, ThreadEnd::kDetached, AlarmEventThread, start.get());
    if (error == 0) {
        static_cast<void>(start.release());  // the thread's now
    }
    return error;
}

AlarmWatch::AlarmWatch() {
    g_rest.WatchBegins();
}
AlarmWatch::~AlarmWatch() {
    g_rest.WatchEnds();
}
void AlarmWatch::Pass() {
    if (++passes_ % kPassesALook == 0) {
        g_rest.Look();
    }
}
