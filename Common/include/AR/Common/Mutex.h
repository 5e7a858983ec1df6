#pragma once

#include "AR/Common/Macros.h"

struct ArMutex;

namespace AR {
namespace Common {

/// A plain (non-recursive) mutex on the platform layer. Locking a mutex the
/// caller already holds deadlocks.
class AR_EXPORT Mutex {
 public:
  /// Aborts if the platform cannot provide a mutex (out of memory): nothing
  /// that needs one can run safely without it.
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock();
  bool tryLock();
  void unlock();

 private:
  ArMutex* handle_;
};

/// Holds a Mutex for the lifetime of the guard.
class MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace Common
}  // namespace AR
