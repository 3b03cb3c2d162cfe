// Operations on a whole index file, by path: prepare it, clear it, ask what it holds.
#include <algorithm>

#include "Descriptor.h"
#include "libLog.h"
#include "libRecordFile.h"

namespace {

Descriptor OpenIndex(const char* path, int mode) {
    return Descriptor(AV_RecordOpen(path, mode), AV_RecordClose);
}

// Reads the system head and checks it.
int ReadChecked(const Descriptor& index, RecordSystemInfoHead_S* system) {
    return AV_SystemInfoHeadRead(index.Get(), system) < 0 ? -1 : AV_SystemInfoHeadCheck(system);
}

}  // namespace

int AV_SystemInfoInitCheck(const char* path) {
    const Descriptor index = OpenIndex(path, AVFILE_READ);
    RecordSystemInfoHead_S system{};
    return ReadChecked(index, &system);
}

int AV_SystemInfoHeadParamSave(const char* path, const RecordSystemInfoHead_S* system) {
    if (system == nullptr) {
        return -1;
    }
    Descriptor index = OpenIndex(path, AVFILE_READ_WRITE);
    const bool written = AV_SystemInfoHeadWrite(index.Get(), system) >= 0;
    return index.Close() == 0 && written ? 0 : -1;
}

int AV_RecordFileConfigSet(const char* path, const ConfigStoreInfo_S* store) {
    if (store == nullptr) {
        return -1;
    }
    LOG_TRACE(":StoreFileNum = %d \n", static_cast<int>(store->vedio_num));
    if (store->vedio_num > RECORD_FILE_MAX) {
        LOG_ERROR(" : %u record files, the index has room for %u\n", store->vedio_num, RECORD_FILE_MAX);
        return -1;
    }
    RecordSystemInfoHead_S system{};
    AV_SystemInfoHeadParamInit(&system, static_cast<uint32_t>(store->total_size_byte), store->vedio_num);
    return AV_SystemInfoHeadParamSave(path, &system);
}

int AV_RecordFileConfigClear(const char* path, uint32_t* file_count) {
    if (file_count == nullptr) {
        return -1;
    }
    Descriptor index = OpenIndex(path, AVFILE_READ_WRITE);
    RecordSystemInfoHead_S system{};
    if (ReadChecked(index, &system) < 0) {
        return -1;
    }
    *file_count = system.m_u32RecordFileSum;
    int result = 0;
    const RecordFileInfoHead_S no_file{};
    const uint32_t heads = std::min(system.m_u32RecordFileSum, RECORD_FILE_MAX);
    for (uint32_t n = 0; n < heads; ++n) {
        result |= AV_RecordFileInfoHeadAccecsFileNoWrite(index.Get(), n, &no_file);
    }
    system = {};
    result |= AV_SystemInfoHeadWrite(index.Get(), &system) < 0 ? -1 : 0;
    return index.Close() == 0 ? result : -1;
}

int AV_RecordConfigInfoGet(const char* path, uint32_t* record_space, uint32_t* free_mib) {
    if (record_space == nullptr || free_mib == nullptr) {
        return -1;
    }
    const Descriptor index = OpenIndex(path, AVFILE_READ);
    RecordSystemInfoHead_S system{};
    const int result = ReadChecked(index, &system);
    if (result == 0) {
        const uint32_t free_files = system.m_u32RecordFileSum - system.m_u32RecordUsedFileSum;
        LOG_TRACE(" : m_u32RecordFileSum = %d  m_u32RecordSpaceSize = %lu  m_u32RecordFreeSize = %lu \n",
                  static_cast<int>(system.m_u32RecordFileSum), static_cast<unsigned long>(system.m_u32RecordSpaceSize),
                  static_cast<unsigned long>(free_files));
        *record_space = system.m_u32RecordSpaceSize;
        *free_mib = free_files << 8;
    }
    return result;
}
