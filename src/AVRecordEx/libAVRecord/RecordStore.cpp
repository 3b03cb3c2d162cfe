// The store as the writer finds it: there or not, prepared or not, writable or not.
#include <unistd.h>

#include <cerrno>

#include "CardFile.h"
#include "CardHealth.h"
#include "libAVRecord.h"

namespace {
constexpr char kIndexPath[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;
}  // namespace

int AVRecordStoreIsThere(void) {
    return access(kIndexPath, F_OK) == 0 ? 1 : 0;
}

int AVRecordStoreIsWritable(uint32_t file_no) {
    if (file_no >= RECORD_FILE_MAX) {
        errno = EINVAL;
        return -1;
    }
    const Descriptor index = card::OpenIndex(AVFILE_READ_WRITE);
    if (!index.IsOpen()) {
        return -1;
    }
    const Descriptor record_file = card::OpenRecordFile(file_no, AVFILE_READ_WRITE);
    return record_file.IsOpen() ? 0 : -1;
}

int AVRecordCardFailing(void) {
    return card::IsFailing() ? 1 : 0;
}

int KQ_RecordConfigGet(void) {
    return AV_SystemInfoInitCheck(kIndexPath);
}

int AVRecordSystemHeadSave(void) {
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    Descriptor index = card::OpenIndex(AVFILE_READ_WRITE);
    const bool is_written = AV_SystemInfoHeadWrite(index.Get(), &heads.system) >= 0;
    return index.Close() == 0 && is_written ? 0 : -1;
}
