#include "AR/PL/PLFile.h"

#include <cstdio>

#include "AR/PL/PLError.h"

// An ArFile is a stdio stream; the opaque type keeps stdio out of the API.
namespace {

FILE* stream(ArFile* file) { return reinterpret_cast<FILE*>(file); }

ArFile* open(const char* path, const char* mode) {
  if (path == nullptr) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    return nullptr;
  }
  FILE* f = std::fopen(path, mode);
  if (f == nullptr) arSetLastError(AR_PL_ERROR_FAILED);
  return reinterpret_cast<ArFile*>(f);
}

}  // namespace

ArFile* arFileOpenForAppend(const char* path) { return open(path, "a"); }

ArFile* arFileOpenForWrite(const char* path) { return open(path, "w"); }

size_t arFileWrite(ArFile* file, const void* data, size_t size) {
  if (file == nullptr || (data == nullptr && size > 0)) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    return 0;
  }
  if (size == 0) return 0;
  const size_t written = std::fwrite(data, 1, size, stream(file));
  if (written < size) arSetLastError(AR_PL_ERROR_FAILED);
  return written;
}

bool arFileFlush(ArFile* file) {
  if (file == nullptr) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    return false;
  }
  if (std::fflush(stream(file)) != 0) {
    arSetLastError(AR_PL_ERROR_FAILED);
    return false;
  }
  return true;
}

bool arFileClose(ArFile* file) {
  if (file == nullptr) return true;
  if (std::fclose(stream(file)) != 0) {
    arSetLastError(AR_PL_ERROR_FAILED);
    return false;
  }
  return true;
}
