#include "AR/CV/Image/Image.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "AR/Common/Logger.h"

namespace AR {
namespace CV {

namespace {

constexpr char kSource[] = "CV/include/AR/CV/Image/Image";

/// Width and height of a request, negative dimensions counted as 0, and the
/// pixel count in 64 bits so that no product can overflow.
struct Request {
  int32_t width;
  int32_t height;
  int64_t numPixels;
};

Request makeRequest(const AR::Math::Vector<int, 2>& size) {
  Request r;
  r.width = std::max(size(0), 0);
  r.height = std::max(size(1), 0);
  r.numPixels = int64_t(r.width) * int64_t(r.height);
  return r;
}

}  // namespace

template <typename T>
Image<T>::Image() {
  refreshDescriptor();
}

template <typename T>
Image<T>::Image(const Vec2I& size, AR::Common::MEMORY_ALIGNMENT alignment) {
  refreshDescriptor();
  allocPixels(size, alignment, false);
}

template <typename T>
Image<T>::Image(T* pixels, const Vec2I& size, uint32_t strideBytes,
                AR::Common::MEMORY_ALIGNMENT alignment) {
  setPixels(pixels, size, strideBytes, alignment);
}

template <typename T>
Image<T>::~Image() {
  freeOwned();
}

template <typename T>
Image<T>::Image(Image&& other) noexcept {
  *this = std::move(other);
}

template <typename T>
Image<T>& Image<T>::operator=(Image&& other) noexcept {
  if (this == &other) return *this;
  freeOwned();
  mPixels = std::exchange(other.mPixels, nullptr);
  mSize = std::exchange(other.mSize, Vec2I());
  mAllocatedWidth = std::exchange(other.mAllocatedWidth, 0);
  mAllocatedHeight = std::exchange(other.mAllocatedHeight, 0);
  mStride = std::exchange(other.mStride, 0u);
  mOwnsMemory = std::exchange(other.mOwnsMemory, false);
  mAlignment = other.mAlignment;
  mDescriptor.format = other.mDescriptor.format;
  refreshDescriptor();
  other.refreshDescriptor();
  return *this;
}

template <typename T>
void Image<T>::freeOwned() {
  if (mOwnsMemory) AR::Common::OS::freeMemAligned(mPixels);
  mOwnsMemory = false;
  mPixels = nullptr;
}

template <typename T>
void Image<T>::release() {
  freeOwned();
  mSize = Vec2I();
  mAllocatedWidth = 0;
  mAllocatedHeight = 0;
  mStride = 0;
  refreshDescriptor();
}

template <typename T>
bool Image<T>::allocPixels(const Vec2I& size, AR::Common::MEMORY_ALIGNMENT alignment,
                           bool reallocate) {
  const Request req = makeRequest(size);
  const int64_t capacity = int64_t(mAllocatedWidth) * int64_t(mAllocatedHeight);

  bool freshMemory = true;
  if (req.numPixels <= capacity && mAlignment >= alignment) {
    bool fits = true;
    if (req.width > mAllocatedWidth || req.height > mAllocatedHeight) {
      // The block is large enough but not in this shape: look for another
      // factorisation of the same capacity whose rows are wide enough. A w'
      // beyond the capacity cannot divide it, which bounds the search.
      fits = false;
      for (int64_t w = std::max<int64_t>(req.width, 1);
           w * req.height <= capacity && w <= capacity; ++w) {
        if (capacity % w == 0) {
          mAllocatedWidth = int32_t(w);
          mAllocatedHeight = int32_t(capacity / w);
          mStride = uint32_t(size_t(w) * sizeof(T));
          fits = true;
          break;
        }
      }
    }
    if (fits) {
      if (!reallocate) {
        freshMemory = false;
      } else {
        freeOwned();
      }
    }
  }

  if (freshMemory) {
    freeOwned();
    T* memory = nullptr;
    if (req.numPixels >= 1) {
      const uint64_t bytes = uint64_t(req.numPixels) * sizeof(T);
      if (bytes > SIZE_MAX ||
          (memory = static_cast<T*>(AR::Common::OS::allocMemAligned(size_t(bytes), alignment))) ==
              nullptr) {
        release();
        return false;
      }
    }
    mPixels = memory;
    mOwnsMemory = memory != nullptr;
    mAlignment = alignment;
    mAllocatedWidth = req.width;
    mAllocatedHeight = req.height;
    mStride = uint32_t(size_t(req.width) * sizeof(T));
  }

  mSize = Vec2I(req.width, req.height);
  refreshDescriptor();
  return true;
}

template <typename T>
void Image<T>::setPixels(T* pixels, const Vec2I& size, uint32_t strideBytes,
                         AR::Common::MEMORY_ALIGNMENT alignment) {
  release();
  const bool sizeOk = size(0) >= 0 && size(1) >= 0;
  const bool strideOk = strideBytes % sizeof(T) == 0 &&
                        uint64_t(strideBytes) >= uint64_t(sizeOk ? size(0) : 0) * sizeof(T) &&
                        strideBytes / sizeof(T) <= uint32_t(INT32_MAX);
  const bool pixelsOk = pixels != nullptr || !sizeOk || int64_t(size(0)) * size(1) == 0;
  if (!(sizeOk && strideOk && pixelsOk)) {
    AR::Common::logError(
        "size(0) >= 0 && size(1) >= 0 && strideBytes % sizeof(T) == 0 && "
        "strideBytes >= size(0) * sizeof(T) && (pixels != nullptr || size(0) * size(1) == 0)",
        kSource,
        "void AR::CV::Image<T>::setPixels(T*, const Vec2I&, uint32_t, AR::Common::MEMORY_ALIGNMENT) "
        "[with T = float; Vec2I = AR::Math::Vector<int, 2>; uint32_t = unsigned int]",
        __LINE__);
    return;
  }
  mPixels = pixels;
  mSize = size;
  mAllocatedWidth = int32_t(strideBytes / sizeof(T));
  mAllocatedHeight = size(1);
  mStride = strideBytes;
  mOwnsMemory = false;
  mAlignment = alignment;
  refreshDescriptor();
}

template <typename T>
void Image<T>::clear(T value) {
  if (mPixels == nullptr) return;
  if (mAllocatedWidth == mSize(0)) {
    std::fill_n(mPixels, numPixels(), value);
    return;
  }
  for (int y = 0; y < mSize(1); ++y) std::fill_n(mPixels + index(0, y), size_t(mSize(0)), value);
}

template <typename T>
void Image<T>::setFormat(uint32_t format) {
  mDescriptor.format = format;
  refreshDescriptor();
}

template <typename T>
void Image<T>::refreshDescriptor() {
  if (mDescriptor.format == IMAGE_FORMAT_FLOAT32_OLD) mDescriptor.format = IMAGE_FORMAT_FLOAT32;
  mDescriptor.data = mPixels;
  mDescriptor.numBytes = size_t(mAllocatedWidth) * size_t(mAllocatedHeight) * sizeof(T);
  mDescriptor.rowBytes = uint32_t(size_t(mAllocatedWidth) * sizeof(T));
}

template <typename T>
T& Image<T>::reportAt(int x, int y, AccessKind kind) const {
  // The condition texts and lines are the ones this image type has always
  // reported; log filters and tests match on them.
  struct Site {
    const char* function;
    int linePixels;
    int lineX;
    int lineY;
    const char* conditionX;
    const char* conditionY;
  };
  static constexpr const char* kPosX = "nPos(0) >= 0 && nPos(0)<(int)(mSize(0))";
  static constexpr const char* kPosY = "nPos(1) >= 0 && nPos(1)<(int)(mSize(1))";
  static constexpr const char* kX = "nX >= 0 && nX<(int)(mSize(0))";
  static constexpr const char* kY = "nY >= 0 && nY<(int)(mSize(1))";
  Site site{};
  switch (kind) {
    case AccessKind::AT_XY:
      site = {"T& AR::CV::Image<T>::at(int, int) [with T = float]", 264, 265, 266, kX, kY};
      break;
    case AccessKind::AT_XY_CONST:
      site = {"const T& AR::CV::Image<T>::at(int, int) const [with T = float]", 274, 275, 276, kX, kY};
      break;
    case AccessKind::AT_POS:
      site = {"T& AR::CV::Image<T>::at(const AR::CV::PixelPos&) [with T = float; "
                           "AR::CV::PixelPos = AR::Math::Vector<int, 2>]", 302, 303, 304, kPosX,
              kPosY};
      break;
    case AccessKind::AT_POS_CONST:
      site = {"const T& AR::CV::Image<T>::at(const AR::CV::PixelPos&) const [with T = float; "
              "AR::CV::PixelPos = AR::Math::Vector<int, 2>]", 312, 313,
              314, kPosX, kPosY};
      break;
    case AccessKind::PIXELS:
      site = {"T* AR::CV::Image<T>::pixels(int, int) [with T = float]", 284, 285, 286, kX, kY};
      break;
    case AccessKind::PIXELS_CONST:
      site = {"const T* AR::CV::Image<T>::pixels(int, int) const [with T = float]", 294, 295, 296,
              kX, kY};
      break;
  }
  if (mPixels == nullptr) AR::Common::logError("mPixels", kSource, site.function, site.linePixels);
  if (!(x >= 0 && x < mSize(0))) AR::Common::logError(site.conditionX, kSource, site.function, site.lineX);
  if (!(y >= 0 && y < mSize(1))) AR::Common::logError(site.conditionY, kSource, site.function, site.lineY);
  thread_local T placeholder;
  placeholder = T();
  return placeholder;
}

// Exported through the class template's own mark.
template class Image<float>;

}  // namespace CV
}  // namespace AR
