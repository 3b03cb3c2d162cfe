// The card as the recorder meets it: a device node and a mounted store, inside the test's own camera.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace support {

inline constexpr char kCardDirectory[] = "/var/etc/sdcard/";
inline constexpr char kCardDevice[] = "/dev/mmcblk0p1";
inline const std::string kIndexFile = "/var/etc/sdcard/index000.bin";
inline const std::string kEventFile = "/var/etc/sdcard/event000.bin";

// A store to put on the card; say only what matters.
struct Store {
    uint32_t files = 3;             // record files in the ring
    uint32_t used_files = 0;        // filled at least once
    uint32_t current_file = 0;      // number of the file being written
    uint32_t current_length = 0;    // bytes of stream data already in it; 0: its head is empty
    uint32_t start_time = 1000000;  // s since 1970 UTC, start of the current file when it has data
};

// Mounts an empty memory file system as the card (the mount table names "/dev/mmcblk0p1") and makes
// the device node; both go when it is destroyed.  Only inside a camera (desk/in-camera).
class Card {
  public:
    Card();
    explicit Card(const Store& store);
    ~Card();
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    void Prepare(const Store& store);  // writes index000.bin, event000.bin and the (sparse) record files
    void Pull();                       // device node and mount disappear, as when the card is pulled
    void Plug();                       // both are back, with the files as they were

    static std::string RecordFile(uint32_t number);  // full path of hi%06d.mp4
    static std::string Read(const std::string& path, uint64_t offset, uint64_t length);
    template <class Record>
    static Record At(const std::string& path, uint64_t offset) {
        Record record;
        std::memcpy(&record, Read(path, offset, sizeof record).data(), sizeof record);
        return record;
    }

  private:
    static void Mount();
    static void MakeDeviceNode();

    int pulled_ = -1;  // the card's directory while the card is out
};

}  // namespace support
