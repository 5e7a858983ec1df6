#include "AR/PL/PLLog.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "AR/PL/PLError.h"
#include "PL/PLHooks.h"

namespace {

std::atomic<ArLogWriteFunction> gWriteHook{nullptr};

int write(int priority, const char* tag, const char* text) {
  const ArLogWriteFunction hook = gWriteHook.load(std::memory_order_acquire);
  return hook != nullptr ? hook(priority, tag, text) : arLogBackendWrite(priority, tag, text);
}

}  // namespace

int arLogPriorityFromLevel(int level) {
  // Indexed by logger level: OFF, ERROR, WARNING, DEBUG, INFO, VERBOSE.
  static const int kPriorities[] = {0,
                                    AR_LOG_PRIORITY_ERROR,
                                    AR_LOG_PRIORITY_WARN,
                                    AR_LOG_PRIORITY_DEBUG,
                                    AR_LOG_PRIORITY_INFO,
                                    AR_LOG_PRIORITY_VERBOSE};
  return (level >= 0 && level <= 5) ? kPriorities[level] : 0;
}

int arLogMessage(int level, const char* tag, const char* text) {
  if (level == 0) return 0;
  if (text == nullptr) return -1;
  if (tag == nullptr) tag = "";
  if (level < 0 || level > 5) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    char message[48];
    std::snprintf(message, sizeof(message), "Erroneous log level %d", level);
    write(AR_LOG_PRIORITY_ERROR, tag, message);
    return -1;
  }
  // The platform log shows the priority itself, so the logger's "AR LEVEL"
  // prefix is dropped: the text starts at its first colon.
  const char* colon = std::strchr(text, ':');
  return write(arLogPriorityFromLevel(level), tag, colon != nullptr ? colon : "");
}

ArLogWriteFunction arLogSetWriteHook(ArLogWriteFunction hook) {
  return gWriteHook.exchange(hook, std::memory_order_acq_rel);
}
