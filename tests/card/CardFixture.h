// A recorded card for tests: say what was recorded, get a store written with the recorder's own record
// library, and know every frame that is on it.
//
//   const Recording card = Card{.files = 3, .sections = {{.seconds = 60}}}.RecordFolder("/tmp/card");
//   const Recording image = Card{.files = 3, .sections = {{.seconds = 60}}}.RecordImage("/tmp/card.img");
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libRecordFile.h"

namespace fixture {

struct SectionPlan {
    uint32_t seconds = 10;  // of video
    uint32_t pause = 5;     // s without recording in front of it
    uint32_t rate = 25;     // frames a second
    int width = 320;        // pixels
    int height = 240;
    AVCodeType video = CODE_VIDEO_H264;   // or CODE_VIDEO_H265
    AVCodeType audio = CODE_AUDIO_G711A;  // or _G711U, _AAC; CODE_AUDIO_NULL: no sound
    uint32_t key_interval = 0;            // frames from key frame to key frame; 0: one a second
    uint32_t frame_bytes = 0;             // video frames are filled up to so many bytes with filler units
    bool b_frames = false;                // see ClipPlan
    uint32_t virtual_every = 0;           // every so many frames one is marked as virtual key frame; 0: none
};

struct EventPlan {
    uint32_t after = 0;    // s behind the card's start
    uint32_t seconds = 5;  // 0: still open
    uint8_t type = 1;      // 1 motion, 4 input, 8 input and motion, 32 smart event
};

struct WrittenFrame {
    size_t section = 0;   // index into Recording::sections
    uint32_t file = 0;    // record file
    uint32_t offset = 0;  // of its first header byte there (behind the stream head of a first frame)
    uint32_t size = 0;    // in the stream, headers included, stream head not
    bool video = true;
    bool key = false;
    bool first_of_run = false;
    uint32_t time = 0;  // s since 1970 UTC
    uint32_t pts = 0;   // 90 kHz
    std::string unit;   // access unit or sound as it was handed to the writer; empty when not kept
};

struct WrittenSection {
    uint32_t file = 0;
    uint32_t number = 0;  // 1 to 251
    uint32_t start = 0;   // s since 1970 UTC
    uint32_t end = 0;
    size_t plan = 0;           // index into Card::sections; a plan that crosses a file border makes several
    bool overwritten = false;  // a later lap has begun to reuse its file
};

// A card that has been recorded, and what is on it.
struct Recording {
    std::string path;                      // folder or image: what the card tool is given
    std::vector<WrittenSection> sections;  // as recorded
    std::vector<WrittenFrame> frames;      // as recorded

    // Frames that are still listed by the index: those of sections that were not overwritten.
    std::vector<const WrittenFrame*> Kept() const;
    std::vector<const WrittenFrame*> KeptVideo() const;

    // Change or read bytes of one of its files, in place.
    void Corrupt(const std::string& file, uint64_t offset, const std::string& bytes) const;
    std::string Read(const std::string& file, uint64_t offset, size_t length) const;
};

struct Card {
    uint32_t files = 3;
    uint32_t start = 1772352000;  // 2026-03-01 08:00:00 UTC
    std::vector<SectionPlan> sections = {};
    std::vector<EventPlan> events = {};
    bool keep_units = true;  // keep every frame's bytes in Recording::frames

    // Writes the store into the (new) folder: sparse record files, index, event file.
    Recording RecordFolder(const std::string& folder) const;
    // Formats the (new, sparse) image with as many record files and writes the same recordings into it.
    Recording RecordImage(const std::string& image) const;
};

// What a program printed and how it ended.
struct Outcome {
    int status = -1;  // exit status; -1: a signal ended it
    std::string out;
    std::string err;
};

// Runs a program to its end, without a shell, TZ=UTC.
Outcome RunProgram(const std::vector<std::string>& arguments);
// Runs recordcard with these arguments.
Outcome Tool(const std::vector<std::string>& arguments);

}  // namespace fixture
