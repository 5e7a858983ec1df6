// Interim implementation: levels, flags, targets and the console output.
// The complete logger (filters, files, all line formats) replaces it.
#include "AR/Common/Logger.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

namespace AR {
namespace Common {

LogTarget::~LogTarget() {}

struct LoggerPIMPL {
  int level = 3;
  unsigned int flags = 34;
  std::vector<LogTarget*> targets;
  std::mutex mutex;
  char message[2048];
};

static const char* levelText(int level) {
  static const char* const kTexts[] = {"", "ERROR", "WARNING", "DEBUG", "INFO", "VERBOSE"};
  return (level >= 0 && level <= 5) ? kTexts[level] : "";
}

Logger::Logger() : pimpl(new LoggerPIMPL) {}
Logger::~Logger() { delete pimpl; }

Logger& Logger::getInstance() {
  static Logger instance;
  return instance;
}

void Logger::setLevel(LEVEL level) { pimpl->level = level; }
Logger::LEVEL Logger::getLevel() const { return static_cast<LEVEL>(pimpl->level); }
void Logger::setFlag(unsigned int mask, bool on) {
  if (on)
    pimpl->flags |= mask;
  else
    pimpl->flags &= ~mask;
}
bool Logger::getFlag(unsigned int mask) const { return (pimpl->flags & mask) != 0; }

void Logger::addTarget(LogTarget* target) {
  std::lock_guard<std::mutex> lock(pimpl->mutex);
  pimpl->targets.push_back(target);
}

bool Logger::removeTarget(LogTarget* target) {
  std::lock_guard<std::mutex> lock(pimpl->mutex);
  for (size_t i = 0; i < pimpl->targets.size(); ++i) {
    if (pimpl->targets[i] == target) {
      pimpl->targets.erase(pimpl->targets.begin() + static_cast<long>(i));
      return true;
    }
  }
  return false;
}

void Logger::enableFastTrace(unsigned long long, LEVEL) {}

static void emit(LoggerPIMPL* p, int level, const char* format, va_list args) {
  int n = 0;
  if (p->flags & 32u) n = std::snprintf(p->message, sizeof(p->message), "AR %s: ", levelText(level));
  if (n < 0) return;
  int m = std::vsnprintf(p->message + n, sizeof(p->message) - static_cast<size_t>(n) - 1, format, args);
  if (m < 0) return;
  size_t len = std::strlen(p->message);
  p->message[len] = '\n';
  p->message[len + 1] = '\0';
  if (p->flags & 2u) std::fputs(p->message, stderr);
  for (LogTarget* t : p->targets) t->output(p->message);
}

void Logger::logEx2(LEVEL level, const char*, const char* method, int, const char* format, ...) {
  if (pimpl->level < level || method == nullptr) return;
  std::lock_guard<std::mutex> lock(pimpl->mutex);
  va_list args;
  va_start(args, format);
  emit(pimpl, level, format, args);
  va_end(args);
}

void Logger::logEx2(int level, const char* format, ...) {
  if (pimpl->level < level) return;
  std::lock_guard<std::mutex> lock(pimpl->mutex);
  va_list args;
  va_start(args, format);
  emit(pimpl, level, format, args);
  va_end(args);
}

void Logger::log2(LEVEL level, const char* file, const char* method, int line, const char* text) {
  logEx2(level, file, method, line, "%s", text);
}

void Logger::log2(LEVEL level, const char* text) { logEx2(static_cast<int>(level), "%s", text); }

void logError(const char* condition, const char* file, const char* function, int line) {
  Logger& logger = Logger::getInstance();
  if (logger.getLevel() >= Logger::LEVEL_ERROR)
    logger.logEx2(Logger::LEVEL_ERROR, "Common/src/Logger",
                  "void AR::Common::logError(const char *, const char *, const char *, const int)",
                  __LINE__, "AR_ASSERT %s %s(%d) %.100s", condition, file, line, function);
}

void logError(size_t currentSize, size_t maxSize, const char* what, size_t bytes) {
  Logger& logger = Logger::getInstance();
  if (logger.getLevel() >= Logger::LEVEL_ERROR)
    logger.logEx2(Logger::LEVEL_ERROR, "Common/src/Logger",
                  "void AR::Common::logError(size_t, size_t, const char*, size_t)", __LINE__,
                  "push_back: current_size=%zu, MAX_SIZE=%d. %zub, %s", currentSize,
                  static_cast<int>(maxSize), bytes, what);
}

void logOnelineString(const std::string& text, int level) {
  Logger::getInstance().logEx2(static_cast<Logger::LEVEL>(level), "Common/src/Logger",
                               "void AR::Common::logOnelineString(const std::string&, int)",
                               __LINE__, "%s", text.c_str());
}

void logMultilineString(const std::string& text, int level) { logOnelineString(text, level); }

}  // namespace Common
}  // namespace AR
