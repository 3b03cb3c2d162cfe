// The real recorder on the card in memory: start check, record loop, writer, hand-over, alarm events, all driven from a
// script.  Time, hand-overs and the alarm thread's looks pass only where the script says so, so that a seed makes the
// same tape again.
#pragma once

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Medium.h"
#include "Tape.h"
#include "support/QueuePeer.h"

namespace cuts {

struct Step {
    enum What {
        kFrames,     // `count` frames
        kFill,       // frames until the current file lacks `count` bytes
        kHandOver,   // what was written reaches the card, `count` frames arriving during each of its first parts
        kAlarm,      // on, or off when `count` is 0
        kAlarmLook,  // the alarm thread looks at the board once, `count` seconds later
        kPause,      // the run ends, `count` seconds later the next one begins: a new section
        kKeyEvery,   // from now on every so many frames a key frame
    };
    What what;
    uint32_t count = 1;
};
using Script = std::vector<Step>;

struct Frame {
    static constexpr size_t kNever = std::numeric_limits<size_t>::max();

    uint32_t file;
    uint32_t lap;  // how often its file was begun before
    uint32_t offset;
    std::string bytes;            // in the stream, a stream head in front not
    uint32_t time;                // s since 1970 UTC
    size_t written = 0;           // operations until it was, those of before the tape being 0
    size_t counted = 0;           // until file and section head count it
    size_t handed_over = kNever;  // until it must be on the card
    size_t overwritten = kNever;  // until a later lap began to
    bool promised = true;         // false: left by an earlier cut, and may be written over at any time

    bool IsThere(size_t at) const { return written <= at && overwritten > at; }
    bool IsSound() const { return bytes[3] == '\xC0'; }
    bool IsKey() const { return !IsSound() && bytes.size() > 21 && bytes[21] == '\xBB'; }
    uint32_t End() const { return offset + static_cast<uint32_t>(bytes.size()); }
};

class Recorder {
  public:
    explicit Recorder(const Medium& medium);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // A process that has just been started, some time after the last of `frames`, which are on the card.
    void Restart(uint64_t seed, std::vector<Frame> frames);
    // Records by the script; `tape` (may be null) gets what passes the door.  Returns what was on the card and what was
    // recorded since, as far as a file's length counts it, in order.
    std::vector<Frame>& Record(const Script& script, Tape* tape);

    struct Start {  // what the start check decided
        bool refused;
        uint32_t file;
        uint32_t offset;  // the next frame's
    };
    Start CheckStart();

  private:
    struct Part {  // of a hand-over
        int file;
        uint64_t offset, end;
        size_t began;  // operations that had happened
    };

    // Operations that have happened.
    size_t Now() const { return tape_ != nullptr ? tape_->Operations() : 0; }
    void Pause();  // of the record loop: the next step
    bool Take(Step& step);
    void WriteFrame();
    void HandOver(uint32_t frames);
    void Sleep(unsigned int milliseconds);
    void NoteFrame(int id, uint64_t offset, std::string bytes);
    void NoteCounted(int id, uint64_t offset);
    void NoteHandedOver(size_t stream_began);

    ssize_t Write(int fd, const void* bytes, size_t length, off64_t offset);
    int SyncRange(int fd, off64_t offset, off64_t length);

    const Medium& medium_;
    support::QueuePeer<8> media_server_;
    long resting_threads_ = 0;
    std::mt19937_64 draw_;
    Script script_;
    size_t step_ = 0;
    Tape* tape_ = nullptr;
    std::vector<Frame> frames_;
    std::vector<Frame> pending_;  // written and not yet counted
    std::vector<uint32_t> laps_;
    uint32_t numbered_ = 0;  // frames since the restart
    uint32_t key_every_ = 10;
    uint32_t pause_ = 0;        // s after the run
    std::vector<Part> handed_;  // of the hand-over under way
};

}  // namespace cuts
