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

  /// The one logger of the process, created on first use (thread-safe) and
  /// destroyed at exit. Starts at level DEBUG with FLAG_CONSOLE | FLAG_LEVEL.
  static Logger& getInstance();

  /// Sets the global level and the level of the filter's root.
  void setLevel(LEVEL level);
  LEVEL getLevel() const;

  /// Sets (`on`) or clears the FLAG bits of `mask` and reselects the line
  /// layout.
  void setFlag(unsigned int mask, bool on);
  /// True if any bit of `mask` is set.
  bool getFlag(unsigned int mask) const;

  /// Closes an open log file and uses `path` from the next message on (an
  /// empty path means no file: messages go to the platform log). Unless
  /// `append`, an existing file is truncated now. The file is opened by the
  /// first message; with `closeAfterWrite` it is closed after each one.
  void setFile(const Path& path, bool append, bool closeAfterWrite);
  /// Truncates the log file if it is not open.
  void clearLogFile();
  /// Flushes and closes the log file if open; the next message reopens it.
  void closeFile();
  /// True if the log file is open or could be opened for appending.
  bool openLogFile();
  /// Closes the log file, but only in close-after-write mode.
  void closeLogFile();

  /// Adds an output that receives every message after the file or platform
  /// log. Not owned; remove it before destroying it.
  void addTarget(LogTarget* target);
  /// Removes the first registration of `target`; false if it had none.
  bool removeTarget(LogTarget* target);

  /// The per-method level tree, used when FLAG_FILTER is set. Changing it
  /// through this reference is meant for set-up time: it is not synchronised
  /// with logging threads. initializeLogSettingsFromConfiguration and
  /// setLevel change it under the logger's mutex and are safe while other
  /// threads log.
  LogFilter& getLogFilter();

  /// Records `level` for fast tracing; nothing in this library reads it.
  void enableFastTrace(unsigned long long mask, LEVEL level);

  /// Full form: `file` is the source path below the source root without
  /// extension ("VIO/src/StereoRectifyWrapper"), `method` the pretty function
  /// name (its last word before "(" names the method in the line and in the
  /// filter, shortened to its last 80 characters), `format` a printf format.
  /// A '%' in `file` or `method` prints as itself. The message is cut to
  /// 2046 characters. Nothing is allocated.
  void logEx2(LEVEL level, const char* file, const char* method, int line, const char* format, ...)
#if defined(__GNUC__)
      __attribute__((format(printf, 6, 7)))
#endif
      ;
  /// Like the full logEx2 with a finished text instead of a format.
  void log2(LEVEL level, const char* file, const char* method, int line, const char* text);

  /// Short forms: no method, file or line, never filtered per method.
  void logEx2(int level, const char* format, ...)
#if defined(__GNUC__)
      __attribute__((format(printf, 3, 4)))
#endif
      ;
  void log2(LEVEL level, const char* text);

  /// Filters a full-form message and builds its format string without
  /// logging it; false when it would be dropped (null method, filtered out,
  /// formatter failure).
  bool checkAndCreateFormatString(LEVEL level, const char* file, const char* method, int line,
                                  const char* format);
  /// Output stage only: writes `length` bytes of the terminated `text` to the
  /// log file, or else to the platform log (FLAG_CONSOLE), then hands `text`
  /// to every target.
  void logRawString2(LEVEL level, const char* text, size_t length);

  /// The method name in a pretty function name: the last blank-separated
  /// word before the first "(", cut to its last `maxLength` characters
  /// (negative: no limit). Points into `prettyName`.
  static StringPortion parseMethodName(const char* prettyName, int maxLength);

  void logBegin(const char*) {}
  void logEnd() {}

  /// Applies the attributes of the "Brim.Logging" element: "defaultLevel"
  /// (a level word), the booleans "timedate", "function", "filename",
  /// "console", "filter", and "logfile" (a path, appended to); then the
  /// filter's "LogLevel" children. Absent attributes change nothing.
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
/// Logs `text` as one message at `level` (1..5; any other level is reported).
/// Texts over 900 characters are reported and logged anyway.
AR_EXPORT void logOnelineString(const std::string& text, int level);
/// Logs `text` line by line, cutting lines longer than 900 characters so
/// that the platform log keeps them whole.
AR_EXPORT void logMultilineString(const std::string& text, int level);

}  // namespace Common
}  // namespace AR
