#include "AR/Common/FatalAssert.h"

#include <cstdio>
#include <cstdlib>

namespace AR {
namespace Common {

void fatalAssertFailed(const char* condition, const char* file, const char* function) {
  std::fprintf(stderr, "Assertion failed: %s, file %s, function %s\n", condition, file, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Common
}  // namespace AR
