// The store as the writer finds it: mounted or not, prepared or not.
#include <sys/stat.h>
#include <unistd.h>

#include "libAVRecord.h"

int AVRecordStoreMayOpen(const char* path) {
    if (path == nullptr) {
        return 0;
    }
    if (access(path, F_OK) == 0) {
        return 1;
    }
    struct stat64 store {};
    struct stat64 parent {};
    return stat64(RECORD_STORE_DIRECTORY, &store) == 0 && stat64(RECORD_STORE_DIRECTORY "..", &parent) == 0 &&
           store.st_dev != parent.st_dev;
}

int KQ_RecordConfigGet(void) {
    return AV_SystemInfoInitCheck(RECORD_STORE_DIRECTORY RECORD_INDEX_NAME);
}

int AVRecordSystemHeadSave(void) {
    constexpr char kIndex[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;
    if (AVRecordStoreMayOpen(kIndex) == 0) {
        return -1;
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    return AV_SystemInfoHeadParamSave(kIndex, &heads.system);
}
