#pragma once

// Heap memory with a chosen alignment, as image pixels need it: the image
// type's view of the platform layer's aligned allocator.
//
// Declared in AR::Common because the image type names its alignment as
// `AR::Common::MEMORY_ALIGNMENT` and frees through `AR::Common::OS`.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "AR/PL/PLMemory.h"

namespace AR {
namespace Common {

/// Alignment of a block of memory in bytes. Ordered: a larger value is a
/// stricter alignment, and memory aligned to one value is aligned to every
/// smaller one.
enum MEMORY_ALIGNMENT : uint32_t {
  MEMORY_ALIGNMENT_1 = 1,
  MEMORY_ALIGNMENT_2 = 2,
  MEMORY_ALIGNMENT_4 = 4,
  MEMORY_ALIGNMENT_8 = 8,
  MEMORY_ALIGNMENT_16 = 16,
  MEMORY_ALIGNMENT_32 = 32,
  MEMORY_ALIGNMENT_64 = 64,
  /// What images allocate with unless told otherwise: a cache line, enough
  /// for any SIMD load of a row start.
  MEMORY_ALIGNMENT_DEFAULT = MEMORY_ALIGNMENT_64,
};

namespace OS {

/// `bytes` bytes aligned to `alignment`, or null when `bytes` is 0 or the
/// memory cannot be had. Free with `freeMemAligned`.
inline void* allocMemAligned(size_t bytes, MEMORY_ALIGNMENT alignment) {
  return arMallocAligned(bytes, size_t(alignment));
}

/// Frees memory from `allocMemAligned`; null is ignored.
inline void freeMemAligned(void* memory) { arFreeAligned(memory); }

/// The strictest alignment of the table that `address` satisfies (a null
/// address satisfies every one).
inline MEMORY_ALIGNMENT getAlignment(const void* address) {
  const uintptr_t value = reinterpret_cast<uintptr_t>(address);
  for (uint32_t align = MEMORY_ALIGNMENT_64; align > 1; align /= 2)
    if (value % align == 0) return MEMORY_ALIGNMENT(align);
  return MEMORY_ALIGNMENT_1;
}

}  // namespace OS
}  // namespace Common
}  // namespace AR
