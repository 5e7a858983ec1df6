#include "AR/Common/Mutex.h"

#include "AR/Common/FatalAssert.h"
#include "AR/PL/PLMutex.h"

namespace AR {
namespace Common {

Mutex::Mutex() : handle_(arMutexCreate()) {
  AR_FATAL_ASSERT(handle_ != nullptr, "handle_ != nullptr", "Common/src/Mutex",
                  "AR::Common::Mutex::Mutex()");
}

Mutex::~Mutex() { arMutexDestroy(handle_); }

void Mutex::lock() { arMutexLock(handle_); }

bool Mutex::tryLock() { return arMutexTryLock(handle_); }

void Mutex::unlock() { arMutexUnlock(handle_); }

}  // namespace Common
}  // namespace AR
