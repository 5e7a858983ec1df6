#pragma once

#include "AR/Common/Macros.h"

namespace AR {
namespace Common {

/// Prints "Assertion failed: <condition>, file <file>, function <function>"
/// to standard error and aborts. Used only for the few programming errors that
/// must not go on (a zero-length vector to normalise, an enumeration value out
/// of range, a NaN root); every data problem goes through logError instead.
[[noreturn]] AR_EXPORT void fatalAssertFailed(const char* condition, const char* file,
                                              const char* function);

}  // namespace Common
}  // namespace AR

/// Always compiled in, independent of NDEBUG. `file` and `function` are string
/// literals naming the source (path below the source root, no extension) and
/// the function's full signature, so the text is the same whatever compiler
/// builds it.
#define AR_FATAL_ASSERT(condition, conditionText, file, function)        \
  do {                                                                   \
    if (!(condition)) {                                                  \
      ::AR::Common::fatalAssertFailed(conditionText, file, function);    \
    }                                                                    \
  } while (false)
