// Platform log backend on Android's liblog.
#include <android/log.h>

#include "AR/PL/PLLog.h"
#include "PL/PLHooks.h"

static_assert(int(AR_LOG_PRIORITY_VERBOSE) == int(ANDROID_LOG_VERBOSE), "priority scale differs");
static_assert(int(AR_LOG_PRIORITY_DEBUG) == int(ANDROID_LOG_DEBUG), "priority scale differs");
static_assert(int(AR_LOG_PRIORITY_INFO) == int(ANDROID_LOG_INFO), "priority scale differs");
static_assert(int(AR_LOG_PRIORITY_WARN) == int(ANDROID_LOG_WARN), "priority scale differs");
static_assert(int(AR_LOG_PRIORITY_ERROR) == int(ANDROID_LOG_ERROR), "priority scale differs");

const char* arLogBackendName(void) { return "android"; }

int arLogBackendWrite(int priority, const char* tag, const char* text) {
  return __android_log_write(priority, tag, text);
}
