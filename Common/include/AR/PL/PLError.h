#pragma once

#include "AR/Common/Macros.h"

/// Error codes of the platform layer. Each thread keeps the code of its last
/// failed platform call; successful calls do not reset it.
enum ArPlatformError {
  AR_PL_ERROR_NONE = 0,
  AR_PL_ERROR_FAILED = 1,         ///< an operating-system call failed (see errno)
  AR_PL_ERROR_OUT_OF_MEMORY = 2,  ///< an allocation could not be satisfied
  AR_PL_ERROR_INVALID_ARGUMENT = 3,  ///< e.g. a log level outside 0..5
};

extern "C" {

/// The code of the calling thread's last platform failure.
AR_EXPORT int arGetLastError(void);
/// Sets the calling thread's platform error code.
AR_EXPORT void arSetLastError(int error);

}  // extern "C"
