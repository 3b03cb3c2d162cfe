#include <cstdint>
#include <cstdlib>

#include "AVRecordAccess.h"
#include "libAVRecord.h"
#include "libIniFile.h"
#include "libLog.h"

namespace {

constexpr int kStreamTypeMax = 2;
constexpr int kDurationMax = 1200;  // s

// 0 for text that is no number.
int ReadNumber(const char* key, const char* default_value) {
    char tmpValue[64] = {};
    read_profile_string("AVRecordCustom", key, tmpValue, sizeof tmpValue, default_value, CUSTOM_SETTINGS_FILE);
    const long long number = std::strtoll(tmpValue, nullptr, 10);
    return number < INT32_MIN ? INT32_MIN : number > INT32_MAX ? INT32_MAX : static_cast<int>(number);
}

}  // namespace

void ReadCustomSettings(int* nStreamType, int* nDuration) {
    *nStreamType = ReadNumber("StreamType", "1");
    LOG_TRACE_AS("main", " nStreamType = %d\n", *nStreamType);
    if (*nStreamType < 0 || *nStreamType > kStreamTypeMax) {
        LOG_TRACE_AS("main", " Param error, nStreamType = %d\n", *nStreamType);
        *nStreamType = 1;
    }
    *nDuration = ReadNumber("Duration", "600");
    if (*nDuration < 0 || *nDuration > kDurationMax) {
        LOG_TRACE_AS("main", " Param error, nDuration = %d\n", *nDuration);
        *nDuration = 600;
    }
    int nHandOver = ReadNumber("HandOver", "1000");
    if (nHandOver < RECORD_HAND_OVER_MIN_MS || nHandOver > RECORD_HAND_OVER_MAX_MS) {
        LOG_TRACE_AS("main", " Param error, nHandOver = %d\n", nHandOver);
        nHandOver = RECORD_HAND_OVER_MS;
    }
    AVRecordHandOverSet(nHandOver);
}
