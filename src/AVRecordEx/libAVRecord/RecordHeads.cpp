// The in-memory heads and their lock.
#include <mutex>

#include "libAVRecord.h"

namespace {

constinit std::mutex g_heads_mutex;
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
