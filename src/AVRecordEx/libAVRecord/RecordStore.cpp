// The store as the writer finds it: prepared or not, writable or not.
#include <cerrno>

#include "CardFile.h"
#include "CardHealth.h"
#include "libAVRecord.h"

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

int AVRecordFileFails(void) {
    return card::RecordFileFails() ? 1 : 0;
}

int KQ_RecordConfigGet(void) {
    return AV_SystemInfoInitCheck(card::kIndexPath);
}
