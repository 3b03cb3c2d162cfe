// Writes a store as the recorder does, frame by frame, through the recorder's own record library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libRecordFile.h"

namespace fixture {

class StoreWriter {
  public:
    explicit StoreWriter(std::string folder);  // of a prepared store; throws std::runtime_error when it is none
    ~StoreWriter();
    StoreWriter(const StoreWriter&) = delete;
    StoreWriter& operator=(const StoreWriter&) = delete;

    // Opens the current file and a new section in it, reusing a full file from its start.
    void BeginSection(uint32_t time, const AVStreamParam& stream);
    void EndSection();  // and goes on to the next file when this one is full
    bool FileFull() const { return file_.m_u32RecordFileSumLenth >= RECORD_STREAM_LIMIT; }

    struct Written {
        uint32_t offset;  // in the record file, behind the stream head of a first frame
        uint32_t size;    // without a stream head
        uint32_t pts;
    };
    Written Video(const std::string& unit, bool key, bool virtual_key, uint32_t time);
    Written Audio(const std::string& sound, uint32_t time);

    void AddEvent(uint32_t file, uint32_t start, uint32_t end, uint8_t type, uint8_t rate);

    uint32_t File() const { return system_.m_u32RecordFileNo; }
    uint32_t Section() const { return section_.m_u16RecordUseNo; }
    bool ReusedFile() const { return reused_; }  // BeginSection began the file's next lap

  private:
    Written Append(const std::vector<uint8_t>& bytes, bool video, bool indexed, uint8_t key_type, uint32_t time);

    std::string folder_;
    int index_ = -1;
    int events_ = -1;
    int stream_ = -1;
    RecordSystemInfoHead_S system_{};
    RecordFileInfoHead_S file_{};
    RecordInfoHead_S section_{};
    AVStreamParam parameters_{};
    uint32_t frames_ = 0;     // video frames of the section
    uint32_t head_size_ = 0;  // of the stream head in front of the bytes being appended
    bool reused_ = false;
};

}  // namespace fixture
