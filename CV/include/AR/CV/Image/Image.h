#pragma once

#include <cstddef>
#include <cstdint>

#include "AR/CV/Image/AlignedMemory.h"
#include "AR/Common/Macros.h"
#include "AR/Math/Vector.h"

namespace AR {
namespace CV {

/// Position of a pixel: (x, y) = (column, row).
using PixelPos = AR::Math::Vector<int, 2>;

/// Format code of a single-channel 32-bit float image in the common image
/// layer. The older code for the same layout, `IMAGE_FORMAT_FLOAT32_OLD`, is
/// replaced by it whenever an image refreshes its descriptor, so consumers
/// of the descriptor only ever meet the current code.
inline constexpr uint32_t IMAGE_FORMAT_FLOAT32 = 0x10001104u;
inline constexpr uint32_t IMAGE_FORMAT_FLOAT32_OLD = 0x10001100u;

/// How an image's pixel block looks to the common image layer: the whole
/// allocated block, including any columns beyond the image width.
struct ImageDescriptor {
  uint32_t format = IMAGE_FORMAT_FLOAT32;
  void* data = nullptr;
  /// allocated width × allocated height × pixel bytes.
  size_t numBytes = 0;
  /// allocated width × pixel bytes.
  uint32_t rowBytes = 0;
};

/// A single-channel image of T (float in this library) whose pixel memory is
/// either its own, aligned heap memory, or a caller's buffer laid under it.
///
/// Pixel (x, y) lies at index x + allocated width × y of the pixel block; the
/// allocated size can exceed the size when memory is reused for a smaller
/// image (`allocPixels`). An image frees only memory that it allocated itself;
/// a caller's buffer stays the caller's.
///
/// Element access through `at` and `pixels` is checked: a missing pixel block
/// or a position outside the image is reported through `logError` with the
/// failed condition and the access then goes to a placeholder pixel private
/// to the calling thread (reset to 0 on every such access), never outside the
/// pixel block.
///
/// Images move but do not copy; a moved-from image is empty.
template <typename T>
class AR_EXPORT Image {
 public:
  using Vec2I = AR::Math::Vector<int, 2>;
  using Pixel = T;

  /// An empty image: no pixels, size (0, 0).
  Image();
  /// An image of `size` with its own memory (uninitialised pixels); empty if
  /// the memory cannot be had.
  explicit Image(const Vec2I& size,
                 AR::Common::MEMORY_ALIGNMENT alignment = AR::Common::MEMORY_ALIGNMENT_DEFAULT);
  /// An image laid over a caller's buffer (see `setPixels`).
  Image(T* pixels, const Vec2I& size, uint32_t strideBytes, AR::Common::MEMORY_ALIGNMENT alignment);
  ~Image();

  Image(Image&& other) noexcept;
  Image& operator=(Image&& other) noexcept;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  /// Makes the image `size` large. Existing memory is reused when it holds
  /// enough pixels at least as strictly aligned as asked: if the new size
  /// does not fit the allocated width and height, the capacity is
  /// re-factorised as w' × capacity / w' with the first w' >= the new width
  /// that divides it (and w' × new height <= capacity); failing that, or
  /// when `reallocate` is set, fresh memory of exactly the new size is
  /// allocated (owned memory is freed first). A dimension below 1 means no
  /// pixels. Returns false only when aligned allocation fails; the image is
  /// then empty.
  bool allocPixels(const Vec2I& size, AR::Common::MEMORY_ALIGNMENT alignment, bool reallocate);

  /// Lays the image over `pixels` (not owned, never freed): size `size`,
  /// allocated size (strideBytes / sizeof(T), height), `alignment` as the
  /// caller vouches for it (`AR::Common::OS::getAlignment` of the buffer).
  /// Owned memory is freed first. The caller's buffer must hold allocated
  /// width × height pixels. A negative dimension, a stride that is not a
  /// whole number of pixels or is shorter than a row, or a null buffer with
  /// pixels is reported through `logError` and leaves the image empty.
  void setPixels(T* pixels, const Vec2I& size, uint32_t strideBytes,
                 AR::Common::MEMORY_ALIGNMENT alignment);

  /// Frees owned memory and leaves the image empty.
  void release();

  /// Sets every pixel of the image (not the columns beyond its width) to
  /// `value`. Does nothing without pixel memory.
  void clear(T value);

  /// Checked access to pixel (x, y).
  T& at(int x, int y) {
    if (mPixels == nullptr || x < 0 || x >= mSize(0) || y < 0 || y >= mSize(1))
      return reportAt(x, y, AccessKind::AT_XY);
    return mPixels[index(x, y)];
  }
  const T& at(int x, int y) const {
    if (mPixels == nullptr || x < 0 || x >= mSize(0) || y < 0 || y >= mSize(1))
      return reportAt(x, y, AccessKind::AT_XY_CONST);
    return mPixels[index(x, y)];
  }
  T& at(const PixelPos& pos) {
    if (mPixels == nullptr || pos(0) < 0 || pos(0) >= mSize(0) || pos(1) < 0 || pos(1) >= mSize(1))
      return reportAt(pos(0), pos(1), AccessKind::AT_POS);
    return mPixels[index(pos(0), pos(1))];
  }
  const T& at(const PixelPos& pos) const {
    if (mPixels == nullptr || pos(0) < 0 || pos(0) >= mSize(0) || pos(1) < 0 || pos(1) >= mSize(1))
      return reportAt(pos(0), pos(1), AccessKind::AT_POS_CONST);
    return mPixels[index(pos(0), pos(1))];
  }

  /// Checked pointer to pixel (x, y); the row continues for width - x pixels.
  /// Outside the image it points at the single placeholder pixel.
  T* pixels(int x, int y) {
    if (mPixels == nullptr || x < 0 || x >= mSize(0) || y < 0 || y >= mSize(1))
      return &reportAt(x, y, AccessKind::PIXELS);
    return mPixels + index(x, y);
  }
  const T* pixels(int x, int y) const {
    if (mPixels == nullptr || x < 0 || x >= mSize(0) || y < 0 || y >= mSize(1))
      return &reportAt(x, y, AccessKind::PIXELS_CONST);
    return mPixels + index(x, y);
  }

  const Vec2I& size() const { return mSize; }
  int width() const { return mSize(0); }
  int height() const { return mSize(1); }
  /// width × height.
  size_t numPixels() const { return size_t(mSize(0)) * size_t(mSize(1)); }
  bool empty() const { return mPixels == nullptr; }

  /// The dimensions the pixel memory was sized for.
  Vec2I allocatedSize() const { return Vec2I(mAllocatedWidth, mAllocatedHeight); }
  /// Bytes from one row to the next: allocated width × sizeof(T).
  uint32_t stride() const { return mStride; }
  bool ownsMemory() const { return mOwnsMemory; }
  AR::Common::MEMORY_ALIGNMENT alignment() const { return mAlignment; }

  /// Start of the pixel block (pixel (0, 0)); null when empty.
  T* data() { return mPixels; }
  const T* data() const { return mPixels; }

  const ImageDescriptor& descriptor() const { return mDescriptor; }
  /// Sets the descriptor's format code and refreshes the descriptor (so the
  /// old float code becomes the current one).
  void setFormat(uint32_t format);

 private:
  enum class AccessKind { AT_XY, AT_XY_CONST, AT_POS, AT_POS_CONST, PIXELS, PIXELS_CONST };

  size_t index(int x, int y) const { return size_t(x) + size_t(mAllocatedWidth) * size_t(y); }
  /// Logs the failed conditions of one checked access and returns the
  /// calling thread's placeholder pixel.
  T& reportAt(int x, int y, AccessKind kind) const;
  void refreshDescriptor();
  void freeOwned();

  T* mPixels = nullptr;
  Vec2I mSize;
  int32_t mAllocatedWidth = 0;
  int32_t mAllocatedHeight = 0;
  uint32_t mStride = 0;
  bool mOwnsMemory = false;
  AR::Common::MEMORY_ALIGNMENT mAlignment = AR::Common::MEMORY_ALIGNMENT_DEFAULT;
  ImageDescriptor mDescriptor;
};

using ImageFloat = Image<float>;

extern template class Image<float>;

}  // namespace CV
}  // namespace AR
