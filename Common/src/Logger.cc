#include "AR/Common/Logger.h"

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/LogFilter.h"
#include "AR/Common/Mutex.h"
#include "AR/Common/Path.h"
#include "AR/Common/Vector.h"
#include "AR/PL/PLFile.h"
#include "AR/PL/PLLog.h"
#include "AR/PL/PLTime.h"
#include "LogFormatters.h"

namespace AR {
namespace Common {

namespace {

constexpr const char* kSource = "Common/src/Logger";
// Method names are filtered and printed by their last 80 characters: enough
// for any namespace-qualified method of this library, short enough to keep
// lines readable when a template argument list explodes.
constexpr int kMaxMethodLength = 80;
constexpr size_t kMessageBufferSize = 2048;
constexpr size_t kFormatBufferSize = 1024;
// Android's log truncates long entries; lines are kept below its limit.
constexpr size_t MAX_LOG_LINE_LEN = 900;
constexpr size_t kMaxDeferredReports = 4;

// True while this thread holds the logger's mutex. The logger's own checks
// (a formatter given a null file, a container that cannot grow) may fire at
// that point; their reports are deferred until the mutex is released instead
// of deadlocking on it or overwriting the buffers in use.
thread_local bool tlsInsideLogger = false;

struct DeferredReport {
  bool capacity;  // false: a failed condition; true: a container out of room
  const char* condition;
  const char* file;
  const char* function;
  int line;
  size_t currentSize;
  size_t maxSize;
  const char* what;
  size_t bytes;
};

const char* orNull(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

LogTarget::~LogTarget() {}

struct LoggerPIMPL {
  Path logFilePath;
  ArFile* file = nullptr;
  bool closeAfterWrite = false;
  Vector<LogTarget*, VectorGrowDoubling<16>> targets;
  char messageBuffer[kMessageBufferSize];
  char formatBuffer[kFormatBufferSize];
  // Read before locking by every call site; atomic so that the unlocked read
  // is well defined (relaxed order: a stale level only admits or drops one
  // message early).
  std::atomic<int> level{Logger::LEVEL_DEBUG};
  int fastTraceLevel = Logger::LEVEL_DEBUG;
  std::atomic<unsigned int> flags{Logger::FLAG_CONSOLE | Logger::FLAG_LEVEL};
  LogFormatFunction formatFunction = nullptr;
  LogFormatFunction shortFormatFunction = nullptr;
  Mutex mutex;
  LogFilter filter{Logger::LEVEL_DEBUG};

  DeferredReport deferred[kMaxDeferredReports];
  size_t deferredCount = 0;
  // File and method with every '%' doubled, for building format strings.
  char escapedFile[512];
  char escapedMethod[2 * kMaxMethodLength + 1];
};

/// Gives the free functions of this file access to the logger's state.
struct LoggerAccess {
  static LoggerPIMPL& state(Logger& logger) { return *logger.pimpl; }
};

namespace {

void defer(const DeferredReport& report) {
  LoggerPIMPL& p = LoggerAccess::state(Logger::getInstance());
  // Later reports of the same message are dropped: the first ones explain it.
  if (p.deferredCount < kMaxDeferredReports) p.deferred[p.deferredCount++] = report;
}

/// Holds the mutex; on leaving, releases it and then emits deferred reports.
class LockedSection {
 public:
  explicit LockedSection(LoggerPIMPL& p) : p_(p) {
    p_.mutex.lock();
    tlsInsideLogger = true;
  }
  ~LockedSection() {
    DeferredReport reports[kMaxDeferredReports];
    const size_t count = p_.deferredCount;
    for (size_t i = 0; i < count; ++i) reports[i] = p_.deferred[i];
    p_.deferredCount = 0;
    tlsInsideLogger = false;
    p_.mutex.unlock();
    for (size_t i = 0; i < count; ++i) {
      const DeferredReport& r = reports[i];
      if (r.capacity)
        logError(r.currentSize, r.maxSize, r.what, r.bytes);
      else
        logError(r.condition, r.file, r.function, r.line);
    }
  }
  LockedSection(const LockedSection&) = delete;
  LockedSection& operator=(const LockedSection&) = delete;

 private:
  LoggerPIMPL& p_;
};

/// Runs a set-up operation under the mutex. A caller already inside the
/// logger (a target reconfiguring it) holds the mutex and runs it directly.
template <typename Operation>
void withLock(LoggerPIMPL& p, Operation operation) {
  if (tlsInsideLogger) {
    operation();
    return;
  }
  LockedSection lock(p);
  operation();
}

bool admitted(LoggerPIMPL& p, const StringPortion& token, Logger::LEVEL level) {
  if (p.flags.load(std::memory_order_relaxed) & Logger::FLAG_FILTER) {
    // An empty token must not mean "no length limit" to the filter.
    if (token.length == 0) return p.filter.allowed("", -1, level);
    return p.filter.allowed(token.text, static_cast<int>(token.length), level);
  }
  return p.level.load(std::memory_order_relaxed) >= level;
}

/// Builds the format string of a full-form message into the format buffer.
/// File and method are escaped so that they print literally. Returns the
/// length of the format string, or -1 when the message must be dropped.
int buildFormatString(LoggerPIMPL& p, Logger::LEVEL level, const char* file,
                      const StringPortion& token, int line, const char* format) {
  if (p.formatFunction == nullptr) return -1;
  const char* escapedFile = nullptr;
  if (file != nullptr) {
    escapePercent(file, std::strlen(file), p.escapedFile, sizeof(p.escapedFile));
    escapedFile = p.escapedFile;
  }
  const size_t methodLength =
      escapePercent(token.text, token.length, p.escapedMethod, sizeof(p.escapedMethod));
  const size_t size = kFormatBufferSize - 1;
  const int count = p.formatFunction(p.formatBuffer, size, level, escapedFile,
                                     static_cast<int>(methodLength), p.escapedMethod, line, format);
  if (count < 0) return -1;
  if (static_cast<size_t>(count) < size) return count;
  return static_cast<int>(trimTruncatedFormat(p.formatBuffer, size - 1));
}

/// Formats the arguments with the format buffer into the message buffer and
/// outputs the result. Only the characters that fit are handed on.
void formatAndOutput(LoggerPIMPL& p, Logger::LEVEL level, va_list args);

void outputLocked(LoggerPIMPL& p, Logger::LEVEL level, const char* text, size_t length) {
  if (p.file == nullptr && !p.logFilePath.empty())
    p.file = arFileOpenForAppend(p.logFilePath.c_str());
  if (p.file != nullptr) {
    // The file replaces the platform log: a device with a log file keeps its
    // console quiet.
    arFileWrite(p.file, text, length);
    arFileFlush(p.file);
    if (p.closeAfterWrite) {
      arFileClose(p.file);
      p.file = nullptr;
    }
  } else if (p.flags.load(std::memory_order_relaxed) & Logger::FLAG_CONSOLE) {
    arLogMessage(level, "AR", text);
  }
  for (LogTarget* target : p.targets) target->output(text);
}

void formatAndOutput(LoggerPIMPL& p, Logger::LEVEL level, va_list args) {
  const size_t size = kMessageBufferSize - 1;
  const int count = std::vsnprintf(p.messageBuffer, size, p.formatBuffer, args);
  if (count < 0) return;
  const size_t length = static_cast<size_t>(count) < size ? static_cast<size_t>(count) : size - 1;
  outputLocked(p, level, p.messageBuffer, length);
}

void closeOpenFile(LoggerPIMPL& p) {
  if (p.file == nullptr) return;
  arFileFlush(p.file);
  arFileClose(p.file);
  p.file = nullptr;
}

void truncateFile(const Path& path) { arFileClose(arFileOpenForWrite(path.c_str())); }

}  // namespace

// ---------------------------------------------------------------------------
// Formatters

namespace {

ArLocalTime localTime() {
  ArLocalTime time{};
  if (!arTimeGetLocalTime(&time)) time = ArLocalTime{0, 0, 0, 0, 0, 0};
  return time;
}

const char* textOrEmpty(const char* text) { return text != nullptr ? text : ""; }

int reportMissing(char* buffer, size_t size, const char* condition, const char* function, int line) {
  logError(condition, kSource, function, line);
  if (size > 0) buffer[0] = '\0';
  return 0;
}

}  // namespace

#define AR_FORMATTER_SIGNATURE(name) \
  "int AR::Common::" #name          \
  "(char*, size_t, Logger::LEVEL, const char*, int, const char*, int, const char*)"

int getFormatString(char* buffer, size_t size, Logger::LEVEL, const char*, int, const char*, int,
                    const char* text) {
  return std::snprintf(buffer, size, "%s", textOrEmpty(text));
}

int getFormatStringFilename(char* buffer, size_t size, Logger::LEVEL, const char* file, int,
                            const char*, int line, const char* text) {
  if (file == nullptr)
    return reportMissing(buffer, size, "file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringFilename), __LINE__);
  return std::snprintf(buffer, size, "%s\n%s(%d)\n", textOrEmpty(text), file, line);
}

int getFormatStringFunction(char* buffer, size_t size, Logger::LEVEL, const char*,
                            int methodLength, const char* method, int, const char* text) {
  if (method == nullptr)
    return reportMissing(buffer, size, "func != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringFunction), __LINE__);
  return std::snprintf(buffer, size, "%.*s(): %s\n", methodLength, method, textOrEmpty(text));
}

int getFormatStringFunctionFilename(char* buffer, size_t size, Logger::LEVEL, const char* file,
                                    int methodLength, const char* method, int line,
                                    const char* text) {
  if (method == nullptr || file == nullptr)
    return reportMissing(buffer, size, "func != nullptr && file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringFunctionFilename), __LINE__);
  return std::snprintf(buffer, size, "%.*s() [%i]: %s\n%s(%d)\n", methodLength, method, line,
                       textOrEmpty(text), file, line);
}

int getFormatStringTime(char* buffer, size_t size, Logger::LEVEL, const char*, int, const char*,
                        int, const char* text) {
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "%u-%02u-%02u %02u:%02u:%02u: %s\n", t.year, t.month, t.day,
                       t.hour, t.minute, t.second, textOrEmpty(text));
}

int getFormatStringTimeFilename(char* buffer, size_t size, Logger::LEVEL, const char* file, int,
                                const char*, int line, const char* text) {
  if (file == nullptr)
    return reportMissing(buffer, size, "file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringTimeFilename), __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "%u-%02u-%02u %02u:%02u:%02u: %s\n%s(%d)\n", t.year, t.month,
                       t.day, t.hour, t.minute, t.second, textOrEmpty(text), file, line);
}

int getFormatStringTimeFunction(char* buffer, size_t size, Logger::LEVEL, const char*,
                                int methodLength, const char* method, int, const char* text) {
  if (method == nullptr)
    return reportMissing(buffer, size, "func != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringTimeFunction), __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "%u-%02u-%02u %02u:%02u:%02u: %.*s(): %s\n", t.year, t.month,
                       t.day, t.hour, t.minute, t.second, methodLength, method, textOrEmpty(text));
}

int getFormatStringTimeFunctionFilename(char* buffer, size_t size, Logger::LEVEL,
                                        const char* file, int methodLength, const char* method,
                                        int line, const char* text) {
  if (method == nullptr || file == nullptr)
    return reportMissing(buffer, size, "func != nullptr && file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringTimeFunctionFilename), __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "%u-%02u-%02u %02u:%02u:%02u: %.*s() [%i]: %s\n%s(%d)\n",
                       t.year, t.month, t.day, t.hour, t.minute, t.second, methodLength, method,
                       line, textOrEmpty(text), file, line);
}

int getFormatStringLevel(char* buffer, size_t size, Logger::LEVEL level, const char*, int,
                         const char*, int, const char* text) {
  return std::snprintf(buffer, size, "AR %s: %s\n", getLogLevelString(level), textOrEmpty(text));
}

int getFormatStringLevelFilename(char* buffer, size_t size, Logger::LEVEL level, const char* file,
                                 int, const char*, int line, const char* text) {
  if (file == nullptr)
    return reportMissing(buffer, size, "file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelFilename), __LINE__);
  return std::snprintf(buffer, size, "AR %s: %s\n%s(%d)\n", getLogLevelString(level),
                       textOrEmpty(text), file, line);
}

int getFormatStringLevelFunction(char* buffer, size_t size, Logger::LEVEL level, const char*,
                                 int methodLength, const char* method, int, const char* text) {
  if (method == nullptr)
    return reportMissing(buffer, size, "func != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelFunction), __LINE__);
  return std::snprintf(buffer, size, "AR %s: %.*s(): %s\n", getLogLevelString(level), methodLength,
                       method, textOrEmpty(text));
}

int getFormatStringLevelFunctionFilename(char* buffer, size_t size, Logger::LEVEL level,
                                         const char* file, int methodLength, const char* method,
                                         int line, const char* text) {
  if (method == nullptr || file == nullptr)
    return reportMissing(buffer, size, "func != nullptr && file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelFunctionFilename), __LINE__);
  return std::snprintf(buffer, size, "AR %s: %.*s() [%i]: %s\n%s(%d)\n", getLogLevelString(level),
                       methodLength, method, line, textOrEmpty(text), file, line);
}

int getFormatStringLevelTime(char* buffer, size_t size, Logger::LEVEL level, const char*, int,
                             const char*, int, const char* text) {
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "AR %s: %u-%02u-%02u %02u:%02u:%02u: %s\n",
                       getLogLevelString(level), t.year, t.month, t.day, t.hour, t.minute,
                       t.second, textOrEmpty(text));
}

int getFormatStringLevelTimeFilename(char* buffer, size_t size, Logger::LEVEL level,
                                     const char* file, int, const char*, int line,
                                     const char* text) {
  if (file == nullptr)
    return reportMissing(buffer, size, "file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelTimeFilename), __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "AR %s: %u-%02u-%02u %02u:%02u:%02u: %s\n%s(%d)\n",
                       getLogLevelString(level), t.year, t.month, t.day, t.hour, t.minute,
                       t.second, textOrEmpty(text), file, line);
}

int getFormatStringLevelTimeFunction(char* buffer, size_t size, Logger::LEVEL level, const char*,
                                     int methodLength, const char* method, int,
                                     const char* text) {
  if (method == nullptr)
    return reportMissing(buffer, size, "func != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelTimeFunction), __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size, "AR %s: %u-%02u-%02u %02u:%02u:%02u: %.*s(): %s\n",
                       getLogLevelString(level), t.year, t.month, t.day, t.hour, t.minute,
                       t.second, methodLength, method, textOrEmpty(text));
}

int getFormatStringLevelTimeFunctionFilename(char* buffer, size_t size, Logger::LEVEL level,
                                             const char* file, int methodLength,
                                             const char* method, int line, const char* text) {
  if (method == nullptr || file == nullptr)
    return reportMissing(buffer, size, "func != nullptr && file != nullptr",
                         AR_FORMATTER_SIGNATURE(getFormatStringLevelTimeFunctionFilename),
                         __LINE__);
  const ArLocalTime t = localTime();
  return std::snprintf(buffer, size,
                       "AR %s: %u-%02u-%02u %02u:%02u:%02u: %.*s() [%i]: %s\n%s(%d)\n",
                       getLogLevelString(level), t.year, t.month, t.day, t.hour, t.minute,
                       t.second, methodLength, method, line, textOrEmpty(text), file, line);
}

#undef AR_FORMATTER_SIGNATURE

const LogFormatFunction kLogFormatFunctions[16] = {
    getFormatString,
    getFormatStringFilename,
    getFormatStringFunction,
    getFormatStringFunctionFilename,
    getFormatStringTime,
    getFormatStringTimeFilename,
    getFormatStringTimeFunction,
    getFormatStringTimeFunctionFilename,
    getFormatStringLevel,
    getFormatStringLevelFilename,
    getFormatStringLevelFunction,
    getFormatStringLevelFunctionFilename,
    getFormatStringLevelTime,
    getFormatStringLevelTimeFilename,
    getFormatStringLevelTimeFunction,
    getFormatStringLevelTimeFunctionFilename,
};

const char* getLogLevelString(Logger::LEVEL level) {
  static const char* const kTexts[] = {"", "ERROR", "WARNING", "DEBUG", "INFO", "VERBOSE"};
  const int nlevel = level;
  if (!(nlevel >= 0 && nlevel <= 5)) {
    logError("nlevel >= 0 && nlevel <= 5", kSource,
             "const char* AR::Common::getLogLevelString(Logger::LEVEL)", __LINE__);
    return "";
  }
  return kTexts[nlevel];
}

void chooseLogFormatFunctions(unsigned int flags, const LogFormatFunction* table,
                              LogFormatFunction& full, LogFormatFunction& shortForm) {
  const unsigned int index = ((flags & Logger::FLAG_LEVEL) ? LOG_FORMAT_LEVEL : 0u) |
                             ((flags & Logger::FLAG_TIMEDATE) ? LOG_FORMAT_TIME : 0u) |
                             ((flags & Logger::FLAG_FUNCTION) ? LOG_FORMAT_FUNCTION : 0u) |
                             ((flags & Logger::FLAG_FILENAME) ? LOG_FORMAT_FILENAME : 0u);
  full = table[index];
  shortForm = table[index & (LOG_FORMAT_LEVEL | LOG_FORMAT_TIME)];
  if (full == nullptr)
    logError("pimpl->formatFunction != nullptr", kSource,
             "void AR::Common::Logger::setFlag(unsigned int, bool)", __LINE__);
  if (shortForm == nullptr)
    logError("pimpl->shortFormatFunction != nullptr", kSource,
             "void AR::Common::Logger::setFlag(unsigned int, bool)", __LINE__);
}

size_t trimTruncatedFormat(char* format, size_t length) {
  size_t i = 0;
  while (i < length) {
    if (format[i] != '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    // flags, width, precision and length modifiers of one conversion
    while (j < length && std::strchr("-+ #0'123456789.*hlLqjzt", format[j]) != nullptr) ++j;
    if (j >= length) {
      format[i] = '\0';
      return i;
    }
    i = j + 1;
  }
  format[length] = '\0';
  return length;
}

size_t escapePercent(const char* text, size_t length, char* out, size_t capacity) {
  if (capacity == 0) return 0;
  size_t written = 0;
  for (size_t i = 0; text != nullptr && i < length && text[i] != '\0'; ++i) {
    const size_t needed = text[i] == '%' ? 2 : 1;
    if (written + needed >= capacity) break;
    out[written++] = text[i];
    if (text[i] == '%') out[written++] = '%';
  }
  out[written] = '\0';
  return written;
}

// ---------------------------------------------------------------------------
// Logger

Logger::Logger() : pimpl(new LoggerPIMPL) {
  chooseLogFormatFunctions(pimpl->flags.load(), kLogFormatFunctions, pimpl->formatFunction,
                           pimpl->shortFormatFunction);
}

Logger::~Logger() {
  // An open log file is left to the C runtime, which flushes and closes it at
  // exit; every message was flushed when written.
  delete pimpl;
  pimpl = nullptr;
}

Logger& Logger::getInstance() {
  static Logger instance;
  return instance;
}

void Logger::setLevel(LEVEL level) {
  pimpl->level.store(level, std::memory_order_relaxed);
  withLock(*pimpl, [&] { pimpl->filter.Level = level; });
}

Logger::LEVEL Logger::getLevel() const {
  return static_cast<LEVEL>(pimpl->level.load(std::memory_order_relaxed));
}

void Logger::setFlag(unsigned int mask, bool on) {
  withLock(*pimpl, [&] {
    unsigned int flags = pimpl->flags.load(std::memory_order_relaxed);
    flags = on ? (flags | mask) : (flags & ~mask);
    pimpl->flags.store(flags, std::memory_order_relaxed);
    chooseLogFormatFunctions(flags, kLogFormatFunctions, pimpl->formatFunction,
                             pimpl->shortFormatFunction);
  });
}

bool Logger::getFlag(unsigned int mask) const {
  return (pimpl->flags.load(std::memory_order_relaxed) & mask) != 0;
}

void Logger::setFile(const Path& path, bool append, bool closeAfterWrite) {
  withLock(*pimpl, [&] {
    closeOpenFile(*pimpl);
    pimpl->logFilePath = path;
    pimpl->closeAfterWrite = closeAfterWrite;
    if (!append && !path.empty()) truncateFile(path);
  });
}

void Logger::clearLogFile() {
  withLock(*pimpl, [&] {
    if (pimpl->file == nullptr && !pimpl->logFilePath.empty()) truncateFile(pimpl->logFilePath);
  });
}

void Logger::closeFile() {
  withLock(*pimpl, [&] { closeOpenFile(*pimpl); });
}

bool Logger::openLogFile() {
  bool open = false;
  withLock(*pimpl, [&] {
    if (pimpl->file == nullptr && !pimpl->logFilePath.empty())
      pimpl->file = arFileOpenForAppend(pimpl->logFilePath.c_str());
    open = pimpl->file != nullptr;
  });
  return open;
}

void Logger::closeLogFile() {
  withLock(*pimpl, [&] {
    if (pimpl->closeAfterWrite) closeOpenFile(*pimpl);
  });
}

void Logger::addTarget(LogTarget* target) {
  if (target == nullptr) return;
  withLock(*pimpl, [&] { pimpl->targets.push_back(target); });
}

bool Logger::removeTarget(LogTarget* target) {
  bool removed = false;
  withLock(*pimpl, [&] {
    for (size_t i = 0; i < pimpl->targets.size(); ++i) {
      if (pimpl->targets[i] == target) {
        pimpl->targets.erase(i);
        removed = true;
        return;
      }
    }
  });
  return removed;
}

LogFilter& Logger::getLogFilter() { return pimpl->filter; }

void Logger::enableFastTrace(unsigned long long, LEVEL level) {
  withLock(*pimpl, [&] { pimpl->fastTraceLevel = level; });
}

StringPortion Logger::parseMethodName(const char* prettyName, int maxLength) {
  if (prettyName == nullptr) return StringPortion(nullptr, 0);
  size_t start = 0;
  size_t i = 0;
  // The name is the last blank-separated word before the parameter list:
  // "void AR::Common::Logger::setFlag(unsigned int, bool)" gives
  // "AR::Common::Logger::setFlag".
  for (; prettyName[i] != '\0' && prettyName[i] != '('; ++i)
    if (prettyName[i] == ' ' || prettyName[i] == '\t') start = i + 1;
  size_t length = i - start;
  if (maxLength >= 0 && length > static_cast<size_t>(maxLength)) {
    start += length - static_cast<size_t>(maxLength);
    length = static_cast<size_t>(maxLength);
  }
  return StringPortion(prettyName + start, length);
}

void Logger::logEx2(LEVEL level, const char* file, const char* method, int line,
                    const char* format, ...) {
  if (pimpl->level.load(std::memory_order_relaxed) < level) return;
  if (tlsInsideLogger) return;  // a target that logs: its message would clobber this one
  LockedSection lock(*pimpl);
  if (method == nullptr) return;
  const StringPortion token = parseMethodName(method, kMaxMethodLength);
  if (!admitted(*pimpl, token, level)) return;
  if (buildFormatString(*pimpl, level, file, token, line, format) < 0) return;
  va_list args;
  va_start(args, format);
  formatAndOutput(*pimpl, level, args);
  va_end(args);
}

void Logger::log2(LEVEL level, const char* file, const char* method, int line, const char* text) {
  if (pimpl->level.load(std::memory_order_relaxed) < level) return;
  if (tlsInsideLogger) return;
  LockedSection lock(*pimpl);
  if (method == nullptr || pimpl->formatFunction == nullptr) return;
  const StringPortion token = parseMethodName(method, kMaxMethodLength);
  if (!admitted(*pimpl, token, level)) return;
  // The text is data, not a format: file and method need no escaping here.
  const int count = pimpl->formatFunction(pimpl->formatBuffer, kFormatBufferSize - 1, level, file,
                                          static_cast<int>(token.length), token.text, line, text);
  if (count < 0) return;
  outputLocked(*pimpl, level, pimpl->formatBuffer, std::strlen(pimpl->formatBuffer));
}

void Logger::logEx2(int level, const char* format, ...) {
  if (pimpl->level.load(std::memory_order_relaxed) < level) return;
  if (tlsInsideLogger) return;
  LockedSection lock(*pimpl);
  if (pimpl->shortFormatFunction == nullptr) return;
  const LEVEL messageLevel = static_cast<LEVEL>(level);
  const size_t size = kFormatBufferSize - 1;
  const int count = pimpl->shortFormatFunction(pimpl->formatBuffer, size, messageLevel, nullptr, 0,
                                               nullptr, 0, format);
  if (count < 0) return;
  if (static_cast<size_t>(count) >= size) trimTruncatedFormat(pimpl->formatBuffer, size - 1);
  va_list args;
  va_start(args, format);
  formatAndOutput(*pimpl, messageLevel, args);
  va_end(args);
}

void Logger::log2(LEVEL level, const char* text) {
  if (pimpl->level.load(std::memory_order_relaxed) < level) return;
  if (tlsInsideLogger) return;
  LockedSection lock(*pimpl);
  if (pimpl->shortFormatFunction == nullptr) return;
  const size_t size = kMessageBufferSize - 1;
  const int count = pimpl->shortFormatFunction(pimpl->messageBuffer, size, level, nullptr, 0,
                                               nullptr, 0, text);
  if (count < 0) return;
  const size_t length = static_cast<size_t>(count) < size ? static_cast<size_t>(count) : size - 1;
  outputLocked(*pimpl, level, pimpl->messageBuffer, length);
}

bool Logger::checkAndCreateFormatString(LEVEL level, const char* file, const char* method, int line,
                                        const char* format) {
  if (pimpl->level.load(std::memory_order_relaxed) < level) return false;
  if (tlsInsideLogger) return false;
  LockedSection lock(*pimpl);
  if (method == nullptr) return false;
  const StringPortion token = parseMethodName(method, kMaxMethodLength);
  if (!admitted(*pimpl, token, level)) return false;
  return buildFormatString(*pimpl, level, file, token, line, format) >= 0;
}

void Logger::logRawString2(LEVEL level, const char* text, size_t length) {
  if (text == nullptr || tlsInsideLogger) return;
  LockedSection lock(*pimpl);
  outputLocked(*pimpl, level, text, length);
}

void Logger::initializeLogSettingsFromConfiguration(const ConfigNode& config) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  if (!logging.isValid()) return;
  if (logging.hasAttribute("defaultLevel"))
    setLevel(static_cast<LEVEL>(LogFilter::getLogLevelFromString(logging.getString("defaultLevel"))));
  static const struct {
    const char* attribute;
    FLAG flag;
  } kFlagAttributes[] = {{"timedate", FLAG_TIMEDATE},
                         {"function", FLAG_FUNCTION},
                         {"filename", FLAG_FILENAME},
                         {"console", FLAG_CONSOLE},
                         {"filter", FLAG_FILTER}};
  for (const auto& entry : kFlagAttributes)
    if (logging.hasAttribute(entry.attribute))
      setFlag(entry.flag, logging.getBool(entry.attribute));
  if (logging.hasAttribute("logfile")) {
    const Path path(logging.getString("logfile"));
    withLock(*pimpl, [&] {
      closeOpenFile(*pimpl);
      pimpl->logFilePath = path;
      pimpl->closeAfterWrite = false;
    });
  }
  // The filter tree is read by every logging thread under the mutex, so it
  // changes only under the mutex too. The words are parsed first, outside:
  // an unknown one logs a warning, which must not happen while the mutex is
  // held. Applying them is what LogFilter::initializeFromConfiguration does.
  struct Entry {
    std::string name;
    int level;
  };
  std::vector<Entry> entries;
  for (ConfigNode child = logging.firstChild("LogLevel"); child.isValid(); child = child.nextSibling("LogLevel")) {
    if (!child.hasAttribute("name") || !child.hasAttribute("level")) continue;
    entries.push_back({child.getString("name"), LogFilter::getLogLevelFromString(child.getString("level"))});
  }
  const bool hasDefaultLevel = logging.hasAttribute("defaultLevel");
  const int defaultLevel = hasDefaultLevel ? LogFilter::getLogLevelFromString(logging.getString("defaultLevel")) : 0;
  withLock(*pimpl, [&] {
    if (hasDefaultLevel) pimpl->filter.Level = defaultLevel;
    for (const Entry& entry : entries)
      pimpl->filter.setFilterLevel(entry.name.c_str(), entry.level, LogFilter::LOG_FILTER_SET_IF_NEW);
  });
}

// ---------------------------------------------------------------------------
// Free functions

void logError(const char* condition, const char* file, const char* function, int line) {
  if (tlsInsideLogger) {
    defer(DeferredReport{false, condition, file, function, line, 0, 0, nullptr, 0});
    return;
  }
  Logger& logger = Logger::getInstance();
  if (logger.getLevel() >= Logger::LEVEL_ERROR)
    logger.logEx2(Logger::LEVEL_ERROR, kSource,
                  "void AR::Common::logError(const char *, const char *, const char *, const int)",
                  __LINE__, "AR_ASSERT %s %s(%d) %.100s", orNull(condition), orNull(file), line,
                  orNull(function));
}

void logError(size_t currentSize, size_t maxSize, const char* what, size_t bytes) {
  if (tlsInsideLogger) {
    defer(DeferredReport{true, nullptr, nullptr, nullptr, 0, currentSize, maxSize, what, bytes});
    return;
  }
  Logger& logger = Logger::getInstance();
  const int shownMaxSize = maxSize > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(maxSize);
  if (logger.getLevel() >= Logger::LEVEL_ERROR)
    logger.logEx2(Logger::LEVEL_ERROR, kSource,
                  "void AR::Common::logError(size_t, size_t, const char*, size_t)", __LINE__,
                  "push_back: current_size=%zu, MAX_SIZE=%d. %zub, %s", currentSize, shownMaxSize,
                  bytes, orNull(what));
}

namespace {

constexpr const char* kOnelineFunction = "void AR::Common::logOnelineString(const std::string&, int)";

// One line of at most MAX_LOG_LINE_LEN characters (longer ones are reported
// and logged anyway); `text` need not be terminated.
void logLine(const char* text, size_t length, int level) {
  if (length > MAX_LOG_LINE_LEN)
    logError("string.length() <= MAX_LOG_LINE_LEN", kSource, kOnelineFunction, __LINE__);
  const int shown = length > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(length);
  Logger& logger = Logger::getInstance();
  if (level >= Logger::LEVEL_ERROR && level <= Logger::LEVEL_VERBOSE) {
    if (logger.getLevel() >= level)
      logger.logEx2(static_cast<Logger::LEVEL>(level), kSource, kOnelineFunction, __LINE__, "%.*s",
                    shown, text);
    return;
  }
  if (logger.getLevel() >= Logger::LEVEL_ERROR)
    logger.logEx2(Logger::LEVEL_ERROR, kSource, kOnelineFunction, __LINE__,
                  "Unsupported log level %d message %.*s", level, shown, text);
  logError("0", kSource, kOnelineFunction, __LINE__);
}

}  // namespace

void logOnelineString(const std::string& text, int level) {
  logLine(text.data(), text.size(), level);
}

void logMultilineString(const std::string& text, int level) {
  const char* data = text.data();
  const size_t length = text.size();
  if (length == 0) {
    logLine(data, 0, level);
    return;
  }
  size_t p = 0;
  while (p < length) {
    const size_t span = length - p < MAX_LOG_LINE_LEN ? length - p : MAX_LOG_LINE_LEN;
    const void* found = std::memchr(data + p, '\n', length - p);
    size_t lineLength = span;
    if (found != nullptr) {
      const size_t newline = static_cast<size_t>(static_cast<const char*>(found) - data);
      if (newline < p + span) lineLength = newline - p;
    }
    logLine(data + p, lineLength, level);
    // A newline anywhere ahead advances one more character, even when the
    // line was cut at the span and that character is not the newline: lines
    // are cut only where Android's log would cut them anyway.
    p += lineLength + (found != nullptr ? 1 : 0);
  }
}

}  // namespace Common
}  // namespace AR
