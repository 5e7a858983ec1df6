#pragma once

#include "AR/Common/Macros.h"

/// A non-recursive mutex of the platform layer (opaque).
struct ArMutex;

extern "C" {

/// A new unlocked mutex, or null when memory runs out.
AR_EXPORT ArMutex* arMutexCreate(void);
/// Destroys an unlocked mutex; null is ignored.
AR_EXPORT void arMutexDestroy(ArMutex* mutex);
AR_EXPORT void arMutexLock(ArMutex* mutex);
/// True if the mutex was free and is now held by the caller.
AR_EXPORT bool arMutexTryLock(ArMutex* mutex);
AR_EXPORT void arMutexUnlock(ArMutex* mutex);

}  // extern "C"
