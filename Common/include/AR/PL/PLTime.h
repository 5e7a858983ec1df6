#pragma once

#include "AR/Common/Macros.h"

/// A calendar time in the local time zone.
struct ArLocalTime {
  unsigned int year;    ///< e.g. 2024
  unsigned int month;   ///< 1..12
  unsigned int day;     ///< 1..31
  unsigned int hour;    ///< 0..23
  unsigned int minute;  ///< 0..59
  unsigned int second;  ///< 0..60 (leap second)
};

extern "C" {

/// Fills `out` with the current local time. False (and platform error set)
/// when the clock or the time-zone conversion fails or `out` is null.
AR_EXPORT bool arTimeGetLocalTime(ArLocalTime* out);

}  // extern "C"
