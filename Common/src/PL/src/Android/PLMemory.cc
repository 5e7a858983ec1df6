#include "AR/PL/PLMemory.h"

#include <cstdlib>

#include "AR/PL/PLError.h"

void* arMallocAligned(size_t size, size_t alignment) {
  if (size == 0) return nullptr;
  if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    return nullptr;
  }
  // posix_memalign wants a multiple of the pointer size.
  if (alignment < sizeof(void*)) alignment = sizeof(void*);
  void* memory = nullptr;
  if (posix_memalign(&memory, alignment, size) != 0) {
    arSetLastError(AR_PL_ERROR_OUT_OF_MEMORY);
    return nullptr;
  }
  return memory;
}

void arFreeAligned(void* memory) { std::free(memory); }
