#include <cstdio>
#include <new>

#include "libOthers.h"

namespace {

int Fail(const char* text) {
    std::fputs(text, stderr);
    return -1;
}

}  // namespace

SemHandl_t MakeSem(void) {
    auto* handle = new (std::nothrow) pthread_mutex_t;
    if (handle == nullptr) {
        Fail("Error: Not enough memory!!\n");
        return nullptr;
    }
    if (pthread_mutex_init(handle, nullptr) != 0) {
        Fail("Error: Sem_Creat init faill!!\n");
        delete handle;
        return nullptr;
    }
    return handle;
}

int SemWait(SemHandl_t handle) {
    return handle == nullptr ? Fail("Error: SemWait: Invalid Semaphore handler\n") : pthread_mutex_lock(handle);
}

int SemRelease(SemHandl_t handle) {
    return handle == nullptr ? Fail("Error: SemRelease: Invalid Semaphore handler\n") : pthread_mutex_unlock(handle);
}

int DestroySem(SemHandl_t handle) {
    if (handle == nullptr) {
        return Fail("Error: DestroySem: Invalid Semaphore handler\n");
    }
    pthread_mutex_lock(handle);
    pthread_mutex_unlock(handle);
    if (pthread_mutex_destroy(handle) != 0) {
        Fail("Error: Sem_kill faill!!\n");
    }
    delete handle;
    return 0;
}
