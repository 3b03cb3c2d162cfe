// What was published, in order, so that anyone can prove what was recorded.
//
// One line a record:  stream=0 kind=video serial=17 length=4711 key=1 time_ms=... position=... crc32=89abcdef
// (CRC-32 of the payload as zlib counts it; wall time).  Lines that begin "#" tell other things.  Every line is
// flushed.  Owns its files.  Any thread.
#pragma once

#include <array>
#include <fstream>
#include <mutex>
#include <string>

#include "FrameRing.h"

namespace desk {

class Journal {
  public:
    void Open(const std::string& path);
    // The published elementary video of `stream`, byte for byte.
    void OpenDump(int stream, const std::string& path);

    void Note(int stream, const FrameRing::Record& record, const FrameRing::Place& place);
    void Remark(const std::string& text);

  private:
    std::mutex mutex_;
    std::ofstream lines_;
    std::array<std::ofstream, 2> dumps_;
};

}  // namespace desk
