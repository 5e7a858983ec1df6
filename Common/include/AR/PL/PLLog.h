#pragma once

#include "AR/Common/Macros.h"

/// Platform log priorities; the numbers are Android's (android/log.h), the
/// host backend uses the same scale.
enum ArLogPriority {
  AR_LOG_PRIORITY_VERBOSE = 2,
  AR_LOG_PRIORITY_DEBUG = 3,
  AR_LOG_PRIORITY_INFO = 4,
  AR_LOG_PRIORITY_WARN = 5,
  AR_LOG_PRIORITY_ERROR = 6,
};

extern "C" {

/// The platform log priority of a logger level (1 ERROR, 2 WARNING, 3 DEBUG,
/// 4 INFO, 5 VERBOSE); 0 for level 0 and for levels outside 0..5.
AR_EXPORT int arLogPriorityFromLevel(int level);

/// Writes one message to the platform log (Android's log, or standard error
/// on a host build) with the priority of `level` and the given tag. The level
/// prefix of a logger line is dropped: the written text starts at the first
/// ':' of `text` (the platform log shows the priority by itself), and a text
/// without ':' is written as an empty string.
/// Returns 0 for level 0 (nothing is written), -1 for a null text, and for a
/// level outside 0..5 sets platform error AR_PL_ERROR_INVALID_ARGUMENT, writes
/// "Erroneous log level <level>" at error priority and returns -1. Otherwise
/// returns the backend's result (negative on failure).
AR_EXPORT int arLogMessage(int level, const char* tag, const char* text);

}  // extern "C"
