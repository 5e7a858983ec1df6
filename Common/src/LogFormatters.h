#pragma once

// The logger's line formatters, internal to the logger and its tests.

#include <cstddef>

#include "AR/Common/Logger.h"

namespace AR {
namespace Common {

/// Writes one line layout into `buffer` (at most `size` bytes including the
/// terminator) and returns the snprintf count: the length the full text
/// would have, 0 when a needed method or file is null (reported), or -1 on
/// an encoding error. `methodLength` is the number of characters of `method`
/// to print.
using LogFormatFunction = int (*)(char* buffer, size_t size, Logger::LEVEL level, const char* file,
                                  int methodLength, const char* method, int line, const char* text);

/// Parts of a line, as bits of a formatter index (8·level + 4·time +
/// 2·function + 1·filename).
enum LogFormatPart : unsigned int {
  LOG_FORMAT_FILENAME = 1,
  LOG_FORMAT_FUNCTION = 2,
  LOG_FORMAT_TIME = 4,
  LOG_FORMAT_LEVEL = 8,
};

/// The sixteen formatters, indexed by their parts.
extern const LogFormatFunction kLogFormatFunctions[16];

int getFormatString(char*, size_t, Logger::LEVEL, const char*, int, const char*, int, const char*);
int getFormatStringFilename(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                            const char*);
int getFormatStringFunction(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                            const char*);
int getFormatStringFunctionFilename(char*, size_t, Logger::LEVEL, const char*, int, const char*,
                                    int, const char*);
int getFormatStringTime(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                        const char*);
int getFormatStringTimeFilename(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                                const char*);
int getFormatStringTimeFunction(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                                const char*);
int getFormatStringTimeFunctionFilename(char*, size_t, Logger::LEVEL, const char*, int,
                                        const char*, int, const char*);
int getFormatStringLevel(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                         const char*);
int getFormatStringLevelFilename(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                                 const char*);
int getFormatStringLevelFunction(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                                 const char*);
int getFormatStringLevelFunctionFilename(char*, size_t, Logger::LEVEL, const char*, int,
                                         const char*, int, const char*);
int getFormatStringLevelTime(char*, size_t, Logger::LEVEL, const char*, int, const char*, int,
                             const char*);
int getFormatStringLevelTimeFilename(char*, size_t, Logger::LEVEL, const char*, int, const char*,
                                     int, const char*);
int getFormatStringLevelTimeFunction(char*, size_t, Logger::LEVEL, const char*, int, const char*,
                                     int, const char*);
int getFormatStringLevelTimeFunctionFilename(char*, size_t, Logger::LEVEL, const char*, int,
                                             const char*, int, const char*);

/// "ERROR", "WARNING", ... for levels 0..5 ("" for 0); a level outside that
/// range is reported and gives "".
const char* getLogLevelString(Logger::LEVEL level);

/// Picks the full formatter (8·LEVEL + 4·TIMEDATE + 2·FUNCTION + 1·FILENAME)
/// and the short one (8·LEVEL + 4·TIMEDATE) for `flags` from `table`. A null
/// entry is reported; the output pointers receive whatever the table holds.
void chooseLogFormatFunctions(unsigned int flags, const LogFormatFunction* table,
                              LogFormatFunction& full, LogFormatFunction& shortForm);

/// Shortens a format string that was cut off by its buffer so that it ends
/// neither inside a conversion nor in a lone '%'. Returns the new length.
size_t trimTruncatedFormat(char* format, size_t length);

/// Copies up to `length` characters of `text` into `out` (capacity
/// `capacity`, terminated) doubling every '%', so the copy prints literally
/// when used inside a printf format. Stops early rather than split a "%%".
/// Returns the number of characters written.
size_t escapePercent(const char* text, size_t length, char* out, size_t capacity);

}  // namespace Common
}  // namespace AR
