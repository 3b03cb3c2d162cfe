#include "RecursiveLock.h"

#include <cstring>

#include "libLog.h"

int RecursiveLockCreate(pthread_mutex_t* mutex) {
    if (mutex == nullptr) {
        return -1;
    }
    pthread_mutexattr_t attribute;
    int error = pthread_mutexattr_init(&attribute);
    if (error != 0) {
        LogTrace("create mutex attribute error. msg:%s", strerror(error));
        return -1;
    }
    error = pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE);
    if (error != 0) {
        LogTrace("create mutex attribute error. msg:%s", strerror(error));
    } else {
        error = pthread_mutex_init(mutex, &attribute);
    }
    pthread_mutexattr_destroy(&attribute);
    return error == 0 ? 0 : -1;
}

int RecursiveLockDestroy(pthread_mutex_t* mutex) {
    return mutex != nullptr && pthread_mutex_destroy(mutex) == 0 ? 0 : -1;
}

int RecursiveLockLock(pthread_mutex_t* mutex) {
    if (mutex == nullptr) {
        return -1;
    }
    const int ret = pthread_mutex_lock(mutex);
    if (ret != 0) {
        LogTrace("ret = %d linux_mutex = %p\n", ret, static_cast<void*>(mutex));
    }
    return ret == 0 ? 0 : -1;
}

int RecursiveLockUnlock(pthread_mutex_t* mutex) {
    return mutex != nullptr && pthread_mutex_unlock(mutex) == 0 ? 0 : -1;
}
