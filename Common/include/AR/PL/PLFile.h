#pragma once

#include <cstddef>

#include "AR/Common/Macros.h"

/// An open file of the platform layer (opaque).
struct ArFile;

extern "C" {

/// Opens `path` in text mode for appending, creating it if needed. Null (and
/// platform error set) on failure.
AR_EXPORT ArFile* arFileOpenForAppend(const char* path);
/// Opens `path` in text mode for writing, truncating it. Null on failure.
AR_EXPORT ArFile* arFileOpenForWrite(const char* path);
/// Writes `size` bytes; returns the number written (less than `size` on error).
AR_EXPORT size_t arFileWrite(ArFile* file, const void* data, size_t size);
/// Pushes buffered data to the operating system. False on failure.
AR_EXPORT bool arFileFlush(ArFile* file);
/// Flushes and closes the file (null is allowed and ignored). False on failure.
AR_EXPORT bool arFileClose(ArFile* file);

}  // extern "C"
