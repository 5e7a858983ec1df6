#pragma once

/// Marks a class or function as part of the shared library's interface. The
/// library builds with hidden visibility, so anything without this mark stays
/// internal to libStereoRectifyWrapper.so.
#if defined(_WIN32)
#define AR_EXPORT __declspec(dllexport)
#else
#define AR_EXPORT __attribute__((visibility("default")))
#endif

/// Silences an unused-value warning for a result that is deliberately ignored.
#define AR_UNUSED(x) ((void)(x))
