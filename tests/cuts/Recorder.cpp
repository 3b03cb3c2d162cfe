#include "Recorder.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <semaphore>
#include <thread>
#include <utility>

#include "CardFile.h"
#include "Clock.h"
#include "Reader.h"
#include "RecordState.h"
#include "libAVRecord.h"
#include "libAVRecordProcess.h"
#include "libAVServerAccess.h"
#include "libAlarmProcess.h"
#include "support/BoundCamera.h"
#include "support/Process.h"

namespace cuts {
namespace {

constexpr int64_t kMorning = 1700035200;  // Wednesday 2023-11-15 08:00:00 UTC
constexpr unsigned int kWatchMs = 20;
constexpr unsigned int kRunOverMs = 100;
constexpr unsigned int kAlarmMs = 80;
constexpr uint32_t kFramesASecond = 5;
constexpr int kPartsWithFrames = 3;        // of a hand-over, which goes on until nothing has come in meanwhile
constexpr int64_t kBetweenProcesses = 10;  // s
constexpr uint32_t kLateFrames = 2;        // that arrive until the end of a full file's run

// Where a thread of the recorder stands still until the script lets it go on.
class Gate {
  public:
    void Arrive() {  // by that thread
        waits_ = true;
        if (!open_ || !waits_.exchange(false)) passes_.acquire();
    }
    bool Await(const Gate* or_this = nullptr) const {  // whether the thread is here
        while (!waits_ && (or_this == nullptr || !or_this->waits_)) std::this_thread::yield();
        return waits_;
    }
    void LetOne() {
        if (waits_.exchange(false)) passes_.release();
    }
    void Open(bool open) {
        open_ = open;
        if (open) LetOne();
    }

  private:
    std::atomic<bool> open_{true};
    std::atomic<bool> waits_{false};
    std::binary_semaphore passes_{0};
};

Gate g_alarm_gate;                      // the alarm thread's sleep
Gate g_rest_gate;                       // the hand-over thread's interval
Gate g_sync_gate;                       // parts of a hand-over
std::atomic<int64_t> g_wall{kMorning};  // s since 1970 UTC
Recorder* g_recorder = nullptr;         // the one
const card::Calls kReal = card::CardCalls();

bool IsHandOverThread() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return std::string(name) == "HandOverThread";
}
void AwaitThreads(long at_most) {
    while (support::Threads() > at_most) std::this_thread::yield();
}
bool IsRecordLoop() {
    return gettid() == getpid();
}

}  // namespace

// Signal measures waits by the steady clock; those of the recorder's threads are the script's.
int AwaitSignal(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end) {
    if (IsRecordLoop()) return pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, end);
    pthread_mutex_unlock(mutex);
    (IsHandOverThread() ? g_rest_gate : g_alarm_gate).Arrive();
    pthread_mutex_lock(mutex);
    return ETIMEDOUT;
}

Recorder::Recorder(const Medium& medium)
    : medium_(medium), media_server_(AVACCESS_MSG_KEY, [](auto&) { return MSG_AVACCESS_TYPE_MSG2; }) {
    setenv("TZ", "UTC", 1);
    tzset();
    g_recorder = this;
    static const ClockSource clock{[] {
                                       return timeval{static_cast<time_t>(g_wall.load()), 0};
                                   },
                                   [] { return static_cast<long>(1000 + g_wall - kMorning); },
                                   [](unsigned int ms) { g_recorder->Sleep(ms); }};
    ReplaceClock(&clock);
    SysInfo& config = support::BindCamera();
    config.Record_config.ucEnable = 1;
    config.Record_config.ucLackSpaceModel = 1;
    Day_Hour_Scope& day = config.Record_config.weekScope.dayScope[3];
    day.ucSocpeMode = TIME_SCOPE_DIFF;
    day.hourScope[0].endHour.ucHour = 24;
    day.hourScope[0].endHour.ucType = 1;  // motion
    libAlarmProcessInit();
    static card::Calls calls = kReal;
    calls.WriteAt = [](int fd, const void* bytes, size_t length, off64_t at) {
        return g_recorder->Write(fd, bytes, length, at);
    };
    calls.SyncRange = [](int fd, off64_t at, off64_t length) { return g_recorder->SyncRange(fd, at, length); };
    card::ReplaceCardCalls(&calls);
    AVRecordHandOverSet(RECORD_HAND_OVER_MAX_MS);
    g_rest_gate.Open(false);
    g_alarm_gate.Open(false);
    resting_threads_ = support::Threads();
    Restart(0, {});
}

Recorder::~Recorder() {
    media_server_.Leave();
    card::ReplaceCardCalls(nullptr);
    AVServerAccessCleanup();
    support::UnbindCamera();
    ReplaceClock(nullptr);
}

void Recorder::Restart(uint64_t seed, std::vector<Frame> frames) {
    draw_.seed(seed);
    frames_ = std::move(frames);
    laps_.assign(medium_.RecordFiles(), 0);
    g_wall = kMorning;
    for (const Frame& frame : frames_) {
        laps_[frame.file] = std::max(laps_[frame.file], frame.lap);
        g_wall = std::max<int64_t>(g_wall, frame.time + kBetweenProcesses);
    }
    numbered_ = 0;
    key_every_ = 10;
    g_control = {};
    g_flags.stop_requested = false;
    g_flags.file_begun_anew = -1;
    g_flags.range = 0;
    AlarmDataWrite(ALARM_SOURCE_DEF_MOTION, ALARM_STATUS_DEF_OFF);
}

Recorder::Start Recorder::CheckStart() {
    g_control.heads_loaded = false;
    const bool refused = AVRecordParamInit(1) != 0;
    g_flags.file_begun_anew = -1;
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    const bool in_use = heads.file.m_u32FileInfoHeadFlag == RECORD_FILE_FLAG;
    return {refused, in_use ? heads.file.m_u32FileInfoHeadNo : heads.system.m_u32RecordFileNo,
            in_use ? heads.file.m_u32RecordFileSumLenth : 0};
}

std::vector<Frame>& Recorder::Record(const Script& script, Tape* tape) {
    script_ = script;
    step_ = 0;
    tape_ = tape;
    while (step_ < script_.size()) {
        g_flags.stop_requested = false;
        if (AVRecordParamInit(1) != 0 || StartRecord(0, 0) != 0) std::abort();
    }
    g_flags.stop_requested = false;
    tape_ = nullptr;
    return frames_;
}

// ---- The script, step by step, in the pauses of the record loop

void Recorder::Sleep(unsigned int milliseconds) {
    if (milliseconds == kAlarmMs) {
        g_alarm_gate.Arrive();
    } else if (milliseconds == kWatchMs) {
        Pause();
    } else if (milliseconds == kRunOverMs) {  // the alarm thread saves its event and goes
        g_rest_gate.Open(true);
        AwaitThreads(resting_threads_ + 1);  // the hand-over's has done its last
        g_alarm_gate.Open(true);
        AwaitThreads(resting_threads_);
        g_rest_gate.Open(false);
        g_alarm_gate.Open(false);
        g_wall += std::exchange(pause_, 0);
    } else {
        std::this_thread::yield();
    }
}

void Recorder::Pause() {
    g_alarm_gate.Await();
    if (step_ == script_.size()) {
        StopRecord();
    } else if (Take(script_[step_])) {
        ++step_;
    }
}

// Whether all of it is done.
bool Recorder::Take(Step& step) {
    AVRecordHeads heads;
    const auto is_full = [&] {
        AVRecordHeadsCopy(&heads);
        return heads.file.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT;
    };
    switch (step.what) {
        case Step::kFrames:
            for (; step.count > 0 && !is_full(); --step.count) WriteFrame();
            for (uint32_t i = 0; i < kLateFrames && is_full(); ++i) WriteFrame();
            return step.count == 0;
        case Step::kFill:
            while (!is_full() && heads.file.m_u32RecordFileSumLenth + step.count < RECORD_STREAM_LIMIT) WriteFrame();
            return true;
        case Step::kHandOver:
            HandOver(step.count);
            return true;
        case Step::kAlarm:
            AlarmDataWrite(ALARM_SOURCE_DEF_MOTION, step.count != 0 ? ALARM_STATUS_DEF_ON : ALARM_STATUS_DEF_OFF);
            return true;
        case Step::kAlarmLook:
            g_wall += step.count;
            g_alarm_gate.LetOne();
            g_alarm_gate.Await();
            return true;
        case Step::kPause:
            pause_ = step.count;
            StopRecord();
            return true;
        case Step::kKeyEvery:
            key_every_ = step.count;
            return true;
    }
    return true;
}

void Recorder::WriteFrame() {
    if (++numbered_ % kFramesASecond == 0) ++g_wall;
    const bool is_sound = numbered_ % 4 == 3;
    std::string frame;
    if (!is_sound) {
        const bool is_key = numbered_ % key_every_ == 1 % key_every_ || AV_RecordInfoHeadGet()->m_u32RecordSize == 0;
        if (is_key) frame += std::string("\0\0\0\1\x67par\0\0\0\1\x68set\0\0\0\1\x65", 19);
        if (!is_key) frame += std::string("\0\0\0\1\x41", 5);
    }
    const size_t length = 40 + draw_() % (is_sound ? 200 : 700);
    while (frame.size() < length) frame += static_cast<char>(draw_() | 1);  // no byte is zero: no start code, no fill
    AVDataInfo info{};
    info.AVDataLen = static_cast<int32_t>(frame.size());
    pending_.clear();
    Mp4RecordVideoCallbackFunc(is_sound ? AV_FRAME_TYPE_AUDIO : AV_FRAME_TYPE_VIDEO, 0, frame.data(), &info);
}

// The hand-over thread does what it does every second; between its parts frames arrive.
void Recorder::HandOver(uint32_t frames) {
    g_rest_gate.Await();  // it may have just been started
    g_sync_gate.Open(false);
    g_rest_gate.LetOne();
    for (int part = 0; g_sync_gate.Await(&g_rest_gate); ++part) {
        for (uint32_t i = 0; i < frames && part < kPartsWithFrames; ++i) WriteFrame();
        g_sync_gate.LetOne();
    }
    g_sync_gate.Open(true);
}

// ---- The door to the card

ssize_t Recorder::Write(int fd, const void* bytes, size_t length, off64_t offset) {
    const int id = medium_.IdOf(fd);
    const auto at = static_cast<uint64_t>(offset);
    const std::string written(static_cast<const char*>(bytes), length);
    if (tape_ != nullptr && id >= 0) tape_->Write(id, at, written);
    const ssize_t put = kReal.WriteAt(fd, bytes, length, offset);
    if (id >= kRecord && at < RECORD_KEY_FRAME_BASE) NoteFrame(id, at, written);
    if (id == kIndex) NoteCounted(id, at);
    return put;
}

void Recorder::NoteFrame(int id, uint64_t offset, std::string bytes) {
    const auto* const at = reinterpret_cast<const uint8_t*>(bytes.data());
    const uint32_t head = bytes.size() >= kStreamHeadBytes && IsStreamHead(at) ? kStreamHeadBytes : 0;
    const uint32_t length = FrameLength(at, head, static_cast<uint32_t>(bytes.size()));
    if (length == 0) std::abort();
    const auto file = static_cast<uint32_t>(id - kRecord);
    const size_t now = Now();
    if (offset == 0) {
        ++laps_[file];
        for (Frame& frame : frames_) {
            if (frame.file == file) frame.overwritten = std::min(frame.overwritten, now);
        }
    }
    pending_ = {{.file = file,
                 .lap = laps_[file],
                 .offset = static_cast<uint32_t>(offset) + head,
                 .bytes = bytes.substr(head, length),
                 .time = static_cast<uint32_t>(g_wall),
                 .written = now}};
}

// The file head is the last that counts a frame.  What arrives after the one that filled the file is not in its length.
void Recorder::NoteCounted(int id, uint64_t offset) {
    if (pending_.empty() || offset != RECORD_FILE_HEAD_BASE + 48 * pending_.back().file) return;
    if (medium_.At<RecordFileInfoHead_S>(id, offset).m_u32RecordFileSumLenth >= pending_.back().End()) {
        pending_.back().counted = Now();
        frames_.push_back(pending_.back());
    }
    pending_.clear();
}

int Recorder::SyncRange(int fd, off64_t offset, off64_t length) {
    const int id = medium_.IdOf(fd);
    const bool is_steady = IsHandOverThread();
    const size_t began = Now();
    if (is_steady) g_sync_gate.Arrive();
    if (tape_ == nullptr || id < 0) return 0;
    const auto at = static_cast<uint64_t>(offset);
    const uint64_t end = length == 0 ? medium_.File(id).size() : at + static_cast<uint64_t>(length);
    tape_->HandedOver(id, at, end, began);
    if (!is_steady) return 0;
    handed_.push_back({id, at, end, began});
    if (id == kIndex) {
        NoteHandedOver(began);
        handed_.clear();
    }
    return 0;
}

// The index has reached the card, as the stream before it has.
void Recorder::NoteHandedOver(size_t index_began) {
    for (Frame& frame : frames_) {
        if (frame.handed_over != Frame::kNever || frame.counted > index_began) continue;
        const bool is_handed = std::any_of(handed_.begin(), handed_.end(), [&](const Part& part) {
            return part.file == kRecord + static_cast<int>(frame.file) && part.offset <= frame.offset &&
                   part.end >= frame.End() && part.began >= frame.written;
        });
        if (is_handed) frame.handed_over = Now();
    }
}

}  // namespace cuts

extern "C" int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end) {
    return cuts::AwaitSignal(condition, mutex, end);
}
