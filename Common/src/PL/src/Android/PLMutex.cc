#include "AR/PL/PLMutex.h"

#include <mutex>
#include <new>

#include "AR/PL/PLError.h"

struct ArMutex {
  std::mutex mutex;
};

ArMutex* arMutexCreate(void) {
  ArMutex* mutex = new (std::nothrow) ArMutex;
  if (mutex == nullptr) arSetLastError(AR_PL_ERROR_OUT_OF_MEMORY);
  return mutex;
}

void arMutexDestroy(ArMutex* mutex) { delete mutex; }

void arMutexLock(ArMutex* mutex) { mutex->mutex.lock(); }

bool arMutexTryLock(ArMutex* mutex) { return mutex->mutex.try_lock(); }

void arMutexUnlock(ArMutex* mutex) { mutex->mutex.unlock(); }
