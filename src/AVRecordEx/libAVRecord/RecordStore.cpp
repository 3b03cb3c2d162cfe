// The store as the writer finds it: there or not, prepared or not.
#include <unistd.h>

#include "libAVRecord.h"

namespace {
constexpr char kIndexPath[] = RECORD_STORE_DIRECTORY RECORD_INDEX_NAME;
}  // namespace

int AVRecordStoreIsThere(void) {
    return access(kIndexPath, F_OK) == 0 ? 1 : 0;
}

int KQ_RecordConfigGet(void) {
    return AV_SystemInfoInitCheck(kIndexPath);
}

int AVRecordSystemHeadSave(void) {
    if (AVRecordStoreIsThere() == 0) {
        return -1;
    }
    AVRecordHeads heads;
    AVRecordHeadsCopy(&heads);
    return AV_SystemInfoHeadParamSave(kIndexPath, &heads.system);
}
