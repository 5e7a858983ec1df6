#include "EntryPointRules.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

TEST(TruncateToInteger, RefusesWhatACastWouldLeaveUndefined) {
  struct Case { float value; bool okInt32; int32_t int32; bool okUint32; uint32_t uint32; };
  const Case cases[] = {
      {3.7f, true, 3, true, 3}, {-0.99f, true, 0, true, 0}, {-1.0f, true, -1, false, 0},
      {2147483520.0f, true, 2147483520, true, 2147483520u},  // the largest float below 2^31
      {2147483648.0f, false, 0, true, 2147483648u}, {-2147483648.0f, true, INT32_MIN, false, 0},
      {-2147483904.0f, false, 0, false, 0},  // the next float below -2^31
      {4294967040.0f, false, 0, true, 4294967040u}, {4294967296.0f, false, 0, false, 0},
      {kNaN, false, 0, false, 0}, {-kInf, false, 0, false, 0}};
  for (const Case& c : cases) {
    int32_t i = 12345;
    uint32_t u = 12345;
    EXPECT_EQ(VIO::tryTruncateToInt32(c.value, i), c.okInt32) << c.value;
    EXPECT_EQ(VIO::tryTruncateToUint32(c.value, u), c.okUint32) << c.value;
    EXPECT_EQ(i, c.int32) << c.value;  // 0 when refused
    EXPECT_EQ(u, c.uint32) << c.value;
  }
}

TEST(MapExtent, ExactWriteBoundFloatProductForTheCheckAndEmptyWhenUnrepresentable) {
  struct Case { float width, height; int w, h; size_t numFloats; uint32_t mapBufferSize; };
  const Case cases[] = {
      {640.0f, 480.0f, 640, 480, 307200, 307200},
      {10.5f, 3.9f, 10, 3, 30, 40},  // 10.5 * 3.9 = 40.95
      // 4097 x 4097 = 16785409 is not a float: the logged comparison uses the
      // rounded product, every write bound the exact one.
      {4097.0f, 4097.0f, 4097, 4097, 16785409, 16785408},
      // Not representable: NaN, negative, infinite, beyond int32, a product beyond uint32, and a
      // 2^30-pixel row, which has no uint32 stride.
      {kNaN, 480.0f, 0, 0, 0, 0}, {640.0f, -2.0f, 0, 0, 0, 0}, {kInf, 1.0f, 0, 0, 0, 0},
      {3e9f, 1.0f, 0, 0, 0, 0}, {70000.0f, 70000.0f, 0, 0, 0, 0}, {1073741824.0f, 1.0f, 0, 0, 0, 0}};
  for (const Case& c : cases) {
    const VIO::MapExtent e = VIO::mapExtentOf(AR::Math::Vector<float, 2>(c.width, c.height));
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    EXPECT_EQ(e.valid, c.numFloats > 0);
    EXPECT_EQ(e.size, AR::Math::Vec2I(c.w, c.h));
    EXPECT_EQ(e.numFloats, c.numFloats);
    EXPECT_EQ(e.mapBufferSize, c.mapBufferSize);
  }
}

}  // namespace
