// Recursive mutexes by address, for the modules whose interface hands out lock operations of its own
// (AVRecordCreateLock, KQ_CreateLock and their siblings are these four under the module's names).
//
// Owns nothing: the mutex lies with the caller and must not move between create and destroy.
// Any thread may lock; the thread that locked n times must unlock n times.
// Each returns 0, or -1 for a null mutex or when the C library refuses.
#pragma once

#include <pthread.h>

int RecursiveLockCreate(pthread_mutex_t* mutex);
int RecursiveLockDestroy(pthread_mutex_t* mutex);  // nobody may hold it
int RecursiveLockLock(pthread_mutex_t* mutex);
int RecursiveLockUnlock(pthread_mutex_t* mutex);
