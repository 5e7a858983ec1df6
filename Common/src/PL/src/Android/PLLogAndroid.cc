// Platform log backend on Android's liblog.
#include <android/log.h>

#include "AR/PL/PLLog.h"
#include "PL/PLHooks.h"

static_assert(AR_LOG_PRIORITY_VERBOSE == ANDROID_LOG_VERBOSE, "priority scale differs");
static_assert(AR_LOG_PRIORITY_DEBUG == ANDROID_LOG_DEBUG, "priority scale differs");
static_assert(AR_LOG_PRIORITY_INFO == ANDROID_LOG_INFO, "priority scale differs");
static_assert(AR_LOG_PRIORITY_WARN == ANDROID_LOG_WARN, "priority scale differs");
static_assert(AR_LOG_PRIORITY_ERROR == ANDROID_LOG_ERROR, "priority scale differs");

const char* arLogBackendName(void) { return "android"; }

int arLogBackendWrite(int priority, const char* tag, const char* text) {
  return __android_log_write(priority, tag, text);
}
