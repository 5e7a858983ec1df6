// Platform log backend for hosts without Android's log: standard error, one
// line per message in the style of logcat's brief format ("E/AR: text").
#include <cstdio>
#include <cstring>

#include "AR/PL/PLError.h"
#include "AR/PL/PLLog.h"
#include "PL/PLHooks.h"

namespace {

char priorityLetter(int priority) {
  switch (priority) {
    case AR_LOG_PRIORITY_VERBOSE: return 'V';
    case AR_LOG_PRIORITY_DEBUG: return 'D';
    case AR_LOG_PRIORITY_INFO: return 'I';
    case AR_LOG_PRIORITY_WARN: return 'W';
    case AR_LOG_PRIORITY_ERROR: return 'E';
    default: return '?';
  }
}

}  // namespace

const char* arLogBackendName(void) { return "host"; }

int arLogBackendWrite(int priority, const char* tag, const char* text) {
  const size_t length = std::strlen(text);
  // Logger texts arrive starting at their colon (": message"); anything else
  // gets the separator that logcat would show.
  const char* separator = text[0] == ':' ? "" : ": ";
  // A missing final newline is added so that messages stay on their own lines.
  const char* end = (length > 0 && text[length - 1] == '\n') ? "" : "\n";
  // One fprintf per message: stdio locks the stream for the call, so lines
  // from different threads never interleave.
  const int written = std::fprintf(stderr, "%c/%s%s%s%s", priorityLetter(priority), tag, separator,
                                   text, end);
  if (written < 0) arSetLastError(AR_PL_ERROR_FAILED);
  return written;
}
