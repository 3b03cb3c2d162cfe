// The in-memory heads and their lock.

#include "Mutex.h"
#include "libAVRecord.h"

namespace {

constinit Mutex g_heads_mutex;
constinit AVRecordHeads g_heads{};

}  // namespace

RecordSystemInfoHead_S* AV_RecordSystemInfoHeadGet(void) {
    return &g_heads.system;
}
RecordFileInfoHead_S* AV_RecordFileInfoHeadGet(void) {
    return &g_heads.file;
}
RecordInfoHead_S* AV_RecordInfoHeadGet(void) {
    return &g_heads.section;
}

int AVRecordNameNextFile(void) {
    RecordSystemInfoHead_S& system = g_heads.system;
    const RecordFileInfoHead_S& file = g_heads.file;
    if (file.m_u32RecordFileSumLenth < RECORD_STREAM_LIMIT || system.m_u32RecordFileNo != file.m_u32FileInfoHeadNo) {
        return 0;
    }
    AV_SystemInfoHeadUsedFileSumFresh(&system, &file);
    AV_SystemInfoHeadFileNoFresh(&system, &file);
    return 1;
}

void AVRecordHeadsLock(void) {
    g_heads_mutex.lock();
}
void AVRecordHeadsUnlock(void) {
    g_heads_mutex.unlock();
}

void AVRecordHeadsCopy(AVRecordHeads* heads) {
    const std::lock_guard lock(g_heads_mutex);
    *heads = g_heads;
}
