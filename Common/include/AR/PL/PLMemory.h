#pragma once

#include <cstddef>

#include "AR/Common/Macros.h"

extern "C" {

/// Allocates `size` bytes whose address is a multiple of `alignment` (a power
/// of two; values below the pointer size are raised to it). Returns null for
/// size 0, for an alignment that is not a power of two (platform error
/// AR_PL_ERROR_INVALID_ARGUMENT) and when memory runs out (platform error
/// AR_PL_ERROR_OUT_OF_MEMORY). Release with arFreeAligned.
AR_EXPORT void* arMallocAligned(size_t size, size_t alignment);
/// Releases memory from arMallocAligned; null is ignored.
AR_EXPORT void arFreeAligned(void* memory);

}  // extern "C"
