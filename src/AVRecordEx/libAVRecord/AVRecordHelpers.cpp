// Locks, the time zone and the AAC configuration bytes.
#include "Clock.h"
#include "RecursiveLock.h"
#include "libAVRecord.h"

int AVRecordCreateLock(pthread_mutex_t* lock) {
    return RecursiveLockCreate(lock);
}
int AVRecordDestroyLock(pthread_mutex_t* lock) {
    return RecursiveLockDestroy(lock);
}
int AVRecordLock(pthread_mutex_t* lock) {
    return RecursiveLockLock(lock);
}
int AVRecordUnlock(pthread_mutex_t* lock) {
    return RecursiveLockUnlock(lock);
}

int GetTimeZone(int* hours) {
    if (hours == nullptr) {
        return -1;
    }
    const int hour = LocalTime(0).tm_hour;
    *hours = hour > 12 ? hour - 24 : hour;
    return 0;
}

int make_dsi(unsigned int sampling_index, unsigned int channels, unsigned char* dsi) {
    if (dsi == nullptr) {
        return -1;
    }
    constexpr unsigned int kAacLc = 2;  // audioObjectType, 5 bits
    dsi[0] = static_cast<unsigned char>((kAacLc << 3) | (sampling_index >> 1));
    dsi[1] = static_cast<unsigned char>((sampling_index << 7) | (channels << 3));
    return 0;
}

int get_sr_index(unsigned int rate) {
    constexpr unsigned int kRates[] = {88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};
    int index = 1;
    for (const unsigned int known : kRates) {
        if (known == rate) {
            return index;
        }
        ++index;
    }
    return 0;
}
