#pragma once

// Internal hooks of the platform layer. They let tests see exactly what
// reaches the platform log (priority, tag, text) and make the clock
// deterministic, without parsing standard error. Not installed.

#include "AR/PL/PLTime.h"

extern "C" {

/// Receives what would be written to the platform log.
typedef int (*ArLogWriteFunction)(int priority, const char* tag, const char* text);
/// Replaces the backend's write function; null restores the backend. Returns
/// the previously installed hook (null when the backend was active).
ArLogWriteFunction arLogSetWriteHook(ArLogWriteFunction hook);
/// The backend that arLogMessage writes to when no hook is installed:
/// "android" (liblog's __android_log_write) or "host" (standard error).
const char* arLogBackendName(void);
/// The backend's own write function, bypassing any hook.
int arLogBackendWrite(int priority, const char* tag, const char* text);

/// Supplies the local time instead of the system clock.
typedef bool (*ArLocalTimeFunction)(ArLocalTime* out);
/// Replaces the clock; null restores it. Returns the previous hook.
ArLocalTimeFunction arTimeSetLocalTimeHook(ArLocalTimeFunction hook);

}  // extern "C"
