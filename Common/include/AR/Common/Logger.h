#pragma once

#include <cstddef>
#include <string>

#include "AR/Common/Macros.h"

namespace AR {
namespace Common {

class ConfigNode;
class LogFilter;
class Path;
struct StringPortion;
struct LoggerPIMPL;

/// An extra output of the logger. `output` receives every finished message
/// (newline included) after the file or platform log has been written. It is
/// called with the logger's mutex held, so it must not log itself.
class AR_EXPORT LogTarget {
 public:
  virtual void output(const char* text) = 0;
  virtual ~LogTarget();
};

/// The process-wide logger. A message is emitted when its level is less than
/// or equal to the active level; call sites test
/// `Logger::getInstance().getLevel() >= level` before formatting anything.
class AR_EXPORT Logger {
 public:
  enum LEVEL : int {
    LEVEL_OFF = 0,
    LEVEL_ERROR = 1,
    LEVEL_WARNING = 2,
    LEVEL_DEBUG = 3,
    LEVEL_INFO = 4,  // more verbose than DEBUG
    LEVEL_VERBOSE = 5,
  };

  enum FLAG : unsigned int {
    FLAG_TIMEDATE = 1,
    FLAG_CONSOLE = 2,
    FLAG_FUNCTION = 4,
    FLAG_FILENAME = 8,
    FLAG_FILTER = 16,
    FLAG_LEVEL = 32,
  };

  static Logger& getInstance();

  void setLevel(LEVEL level);
  LEVEL getLevel() const;

  void setFlag(unsigned int mask, bool on);
  bool getFlag(unsigned int mask) const;

  void setFile(const Path& path, bool append, bool closeAfterWrite);
  void clearLogFile();
  void closeFile();
  bool openLogFile();
  void closeLogFile();

  void addTarget(LogTarget* target);
  bool removeTarget(LogTarget* target);

  LogFilter& getLogFilter();

  void enableFastTrace(unsigned long long mask, LEVEL level);

  /// Full form: `file` is the source path below the source root without
  /// extension ("VIO/src/StereoRectifyWrapper"), `method` the pretty function
  /// name, `format` a printf format.
  void logEx2(LEVEL level, const char* file, const char* method, int line, const char* format, ...)
#if defined(__GNUC__)
      __attribute__((format(printf, 6, 7)))
#endif
      ;
  void log2(LEVEL level, const char* file, const char* method, int line, const char* text);

  /// Short forms: no method, file or line, never filtered per method.
  void logEx2(int level, const char* format, ...)
#if defined(__GNUC__)
      __attribute__((format(printf, 3, 4)))
#endif
      ;
  void log2(LEVEL level, const char* text);

  bool checkAndCreateFormatString(LEVEL level, const char* file, const char* method, int line,
                                  const char* format);
  void logRawString2(LEVEL level, const char* text, size_t length);

  static StringPortion parseMethodName(const char* prettyName, int maxLength);

  void logBegin(const char*) {}
  void logEnd() {}

  void initializeLogSettingsFromConfiguration(const ConfigNode& config);

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

 private:
  friend struct LoggerAccess;
  Logger();
  ~Logger();

  LoggerPIMPL* pimpl;
};

/// Contract check sink: logs "AR_ASSERT <condition> <file>(<line>) <function>"
/// at ERROR and returns; the caller carries on with the data it has.
AR_EXPORT void logError(const char* condition, const char* file, const char* function, int line);
/// Reports a container that ran out of fixed capacity.
AR_EXPORT void logError(size_t currentSize, size_t maxSize, const char* what, size_t bytes);
AR_EXPORT void logOnelineString(const std::string& text, int level);
AR_EXPORT void logMultilineString(const std::string& text, int level);

}  // namespace Common
}  // namespace AR
