#include "EntryPointRules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using AR::Math::Vec2I;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

struct Int32Case {
  float value;
  bool ok;
  int32_t expected;
};

class TruncateToInt32 : public testing::TestWithParam<Int32Case> {};

TEST_P(TruncateToInt32, RefusesWhatACastWouldLeaveUndefined) {
  const Int32Case c = GetParam();
  int32_t out = 12345;
  EXPECT_EQ(VIO::tryTruncateToInt32(c.value, out), c.ok) << c.value;
  EXPECT_EQ(out, c.expected) << c.value;
}

INSTANTIATE_TEST_SUITE_P(
    Values, TruncateToInt32,
    testing::Values(Int32Case{3.7f, true, 3}, Int32Case{-3.7f, true, -3}, Int32Case{-0.5f, true, 0},
                    Int32Case{2147483520.0f, true, 2147483520},  // largest float below 2^31
                    Int32Case{2147483648.0f, false, 0}, Int32Case{-2147483648.0f, true, INT32_MIN},
                    Int32Case{-2147483904.0f, false, 0},  // next float below -2^31
                    Int32Case{kNaN, false, 0}, Int32Case{kInf, false, 0},
                    Int32Case{-kInf, false, 0}));

struct Uint32Case {
  float value;
  bool ok;
  uint32_t expected;
};

class TruncateToUint32 : public testing::TestWithParam<Uint32Case> {};

TEST_P(TruncateToUint32, RefusesWhatACastWouldLeaveUndefined) {
  const Uint32Case c = GetParam();
  uint32_t out = 12345;
  EXPECT_EQ(VIO::tryTruncateToUint32(c.value, out), c.ok) << c.value;
  EXPECT_EQ(out, c.expected) << c.value;
}

INSTANTIATE_TEST_SUITE_P(
    Values, TruncateToUint32,
    testing::Values(Uint32Case{307200.9f, true, 307200}, Uint32Case{-0.99f, true, 0},
                    Uint32Case{-1.0f, false, 0}, Uint32Case{4294967040.0f, true, 4294967040u},
                    Uint32Case{4294967296.0f, false, 0}, Uint32Case{kNaN, false, 0},
                    Uint32Case{kInf, false, 0}));

TEST(MapExtent, OrdinaryImage) {
  const VIO::MapExtent e = VIO::mapExtentOf(640.0f, 480.0f);
  EXPECT_TRUE(e.valid);
  EXPECT_EQ(e.size, Vec2I(640, 480));
  EXPECT_EQ(e.numFloats, 307200u);
  EXPECT_EQ(e.mapBufferSize, 307200u);
}

TEST(MapExtent, FloatProductIsForTheCheckAndExactProductForTheBounds) {
  // 4097 x 4097 = 16785409 is not a float: the logged comparison uses the
  // rounded product, every write bound the exact one.
  const VIO::MapExtent e = VIO::mapExtentOf(4097.0f, 4097.0f);
  EXPECT_TRUE(e.valid);
  EXPECT_EQ(e.numFloats, 16785409u);
  EXPECT_EQ(e.mapBufferSize, uint32_t(4097.0f * 4097.0f));
  EXPECT_NE(size_t(e.mapBufferSize), e.numFloats);
}

TEST(MapExtent, FractionalSizesTruncate) {
  const VIO::MapExtent e = VIO::mapExtentOf(AR::Math::Vector<float, 2>(10.5f, 3.9f));
  EXPECT_TRUE(e.valid);
  EXPECT_EQ(e.size, Vec2I(10, 3));
  EXPECT_EQ(e.numFloats, 30u);
  EXPECT_EQ(e.mapBufferSize, 40u);  // 10.5 * 3.9 = 40.95
}

TEST(MapExtent, UnrepresentableSizesGiveAnEmptyMap) {
  const float bad[][2] = {{kNaN, 480.0f},  {640.0f, kNaN},   {-640.0f, 480.0f}, {640.0f, -2.0f},
                          {kInf, 1.0f},    {3e9f, 1.0f},     {70000.0f, 70000.0f},
                          {1073741824.0f, 1.0f}};  // a 2^30-pixel row has no uint32 stride
  for (const auto& s : bad) {
    const VIO::MapExtent e = VIO::mapExtentOf(s[0], s[1]);
    EXPECT_FALSE(e.valid) << s[0] << " x " << s[1];
    EXPECT_EQ(e.size, Vec2I(0, 0));
    EXPECT_EQ(e.numFloats, 0u);
    EXPECT_EQ(e.mapBufferSize, 0u);
  }
}

/// A caller buffer of `size` floats with canaries on both sides.
struct GuardedBuffer {
  static constexpr size_t kGuard = 16;
  static constexpr float kCanary = 1234.5f;
  explicit GuardedBuffer(size_t size) : storage(size + 2 * kGuard, kCanary), size(size) {}
  float* data() { return storage.data() + kGuard; }
  bool guardsIntact() const {
    for (size_t i = 0; i < kGuard; ++i)
      if (storage[i] != kCanary || storage[kGuard + size + i] != kCanary) return false;
    return true;
  }
  float at(size_t i) const { return storage[kGuard + i]; }
  std::vector<float> storage;
  size_t size;
};

/// Fills the map as a builder would: X = index, Y = -index.
void fillPattern(AR::Common::ArrayView<AR::CV::Image<float>>& view) {
  for (int y = 0; y < view[0].height(); ++y)
    for (int x = 0; x < view[0].width(); ++x) {
      const float index = float(x + view[0].width() * y);
      view[0].at(x, y) = index;
      view[1].at(x, y) = -index;
    }
}

class CallerMapPairBounds : public testing::TestWithParam<int> {};

TEST_P(CallerMapPairBounds, WritesTheRowMajorMapPrefixAndNothingElse) {
  const VIO::MapExtent extent = VIO::mapExtentOf(7.0f, 5.0f);
  const size_t size = size_t(int(extent.numFloats) + GetParam());
  GuardedBuffer x(size), y(size);
  {
    VIO::CallerMapPair maps(extent, x.data(), uint32_t(size), y.data(), uint32_t(size));
    ASSERT_EQ(maps.view().size(), 2u);
    EXPECT_EQ(maps.view()[0].size(), extent.size);
    EXPECT_EQ(maps.view()[1].size(), extent.size);
    // Large enough buffers are written in place.
    EXPECT_EQ(maps.view()[0].data() == x.data(), size >= extent.numFloats);
    fillPattern(maps.view());
    maps.finish();
  }
  EXPECT_TRUE(x.guardsIntact());
  EXPECT_TRUE(y.guardsIntact());
  const size_t written = std::min(size, extent.numFloats);
  for (size_t i = 0; i < written; ++i) {
    EXPECT_EQ(x.at(i), float(i));
    EXPECT_EQ(y.at(i), -float(i));
  }
  for (size_t i = written; i < size; ++i) {
    EXPECT_EQ(x.at(i), GuardedBuffer::kCanary);
    EXPECT_EQ(y.at(i), GuardedBuffer::kCanary);
  }
}

// Exact, larger, one row short, one float short, a single float, none.
INSTANTIATE_TEST_SUITE_P(SizeOffsets, CallerMapPairBounds, testing::Values(0, 9, -7, -1, -34, -35));

TEST(CallerMapPair, NullBufferIsNeverWrittenButTheOtherIs) {
  const VIO::MapExtent extent = VIO::mapExtentOf(4.0f, 3.0f);
  GuardedBuffer y(12);
  VIO::CallerMapPair maps(extent, nullptr, 12, y.data(), 12);
  EXPECT_EQ(maps.view()[0].size(), extent.size);  // the builder still sees a full pair
  fillPattern(maps.view());
  maps.finish();
  EXPECT_TRUE(y.guardsIntact());
  EXPECT_EQ(y.at(11), -11.0f);
}

TEST(CallerMapPair, EmptyExtentWritesNothing) {
  GuardedBuffer x(4), y(4);
  VIO::CallerMapPair maps(VIO::MapExtent(), x.data(), 4, y.data(), 4);
  EXPECT_EQ(maps.view()[0].numPixels(), 0u);
  maps.view()[0].clear(-1.0f);
  maps.finish();
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(x.at(i), GuardedBuffer::kCanary);
}

}  // namespace
