/* The formatter: makes a blank card a recording card in one pass, FAT32 with every file of the store
 * already lying there in one piece at its full size.
 *
 * Owns the device while it formats it and nothing afterwards.  Never writes the data of record or
 * picture files: what they held before is still there; only what a recorder or player reads as heads
 * ("index000.bin", "event000.bin") is zeroed.
 * Threads: one format a device at a time (a lock on the device sees to it), any thread.
 * Invariants: a refusal writes nothing; from the first byte written to the last the device has no valid
 * boot sector, so a cut leaves a card that every reader rejects, never one that looks whole.
 */
#ifndef LIB_PRE_STORE_H
#define LIB_PRE_STORE_H

#include "libRecordFile.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Formats the card's partition "/dev/mmcblk0p1" with mkfs_vfat; same result. */
int AV_RecordSDCardFormat(ConfigStoreInfo_S* store, int video_percent);

/* Formats the block device or image file `device_name`.  `video_percent` (0 to 100) of the space beyond
 * 1 GiB becomes record files, the rest picture files, 256 MiB each; a card without record files is made
 * when the share says so.  The sizes chosen go to `store`, from
 * which AV_RecordFileConfigSet writes the index's system head once the card is mounted; until then all
 * heads are zero.
 * Returns 0.  Returns -1, nothing written, with a line on standard error when an argument or the device
 * is refused: busy, mounted, read-only, too small, too large.  A device error (open, write, seek) is
 * reported there and ends the process with status 1. */
int mkfs_vfat(const char* device_name, ConfigStoreInfo_S* store, int video_percent);

/* Widens the 8-bit name `input` to 16-bit little-endian characters, without an ending zero.  `output` has
 * room for 2 bytes a character.  Returns the bytes written; -1 for a null argument. */
int AssciToUnicode(const char* input, unsigned char* output);

#ifdef __cplusplus
} /* extern "C" */

#include <functional>
#include <string>

namespace prestore {

struct FormatOptions {
    int video_percent = 100;   // see mkfs_vfat; a share without a record file is refused
    bool system_head = false;  // also write the index's fresh system head: a recording card at once
    // Called on the formatting thread after each write; both in bytes, `done` ends equal to `total`.
    std::function<void(uint64_t done, uint64_t total)> progress = {};
};

enum class FormatError {
    kNone,     // formatted (or: would be)
    kRefused,  // nothing was written, the device is as it was
    kDevice,   // the device failed; if writing had begun it no longer holds a volume
};

struct FormatResult {
    FormatError error = FormatError::kNone;
    std::string message;           // one line without newline, fit for the user; empty on success
    ConfigStoreInfo_S store = {};  // as reported by mkfs_vfat
    uint64_t volume_bytes = 0;
    uint32_t sector_bytes = 0;
    uint32_t cluster_bytes = 0;
    uint32_t clusters = 0;        // data clusters of the volume
    uint64_t bytes_to_write = 0;  // what a format writes
    uint64_t bytes_smallest = 0;  // the least any format of this store could write
    uint64_t bytes_written = 0;
    double seconds = 0;  // from opening the device to the last flush

    bool Ok() const { return error == FormatError::kNone; }
};

// What Format would do with this device, or why it would refuse; writes nothing.
FormatResult CheckFormat(const char* path, const FormatOptions& options);

// Formats `path`, a block device or an image file (512-byte sectors, the size the file has).  Returns only
// when everything is on the device.  Prints nothing.
FormatResult Format(const char* path, const FormatOptions& options);

}  // namespace prestore
#endif
#endif
