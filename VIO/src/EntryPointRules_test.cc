#include "EntryPointRules.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using AR::Math::Vec2I;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

TEST(TruncateToInteger, RefusesWhatACastWouldLeaveUndefined) {
  struct Case {
    float value;
    bool ok;
    int64_t expected;
  };
  const Case int32Cases[] = {
      {3.7f, true, 3},  {-3.7f, true, -3}, {2147483520.0f, true, 2147483520},  // below 2^31
      {2147483648.0f, false, 0}, {-2147483648.0f, true, INT32_MIN},
      {-2147483904.0f, false, 0},  // the next float below -2^31
      {kNaN, false, 0}, {kInf, false, 0}, {-kInf, false, 0}};
  for (const Case& c : int32Cases) {
    int32_t out = 12345;
    EXPECT_EQ(VIO::tryTruncateToInt32(c.value, out), c.ok) << c.value;
    EXPECT_EQ(out, c.expected) << c.value;
  }
  const Case uint32Cases[] = {{307200.9f, true, 307200}, {-0.99f, true, 0},
                              {-1.0f, false, 0},        {4294967040.0f, true, 4294967040},
                              {4294967296.0f, false, 0}, {kNaN, false, 0}, {kInf, false, 0}};
  for (const Case& c : uint32Cases) {
    uint32_t out = 12345;
    EXPECT_EQ(VIO::tryTruncateToUint32(c.value, out), c.ok) << c.value;
    EXPECT_EQ(out, c.expected) << c.value;
  }
}

TEST(MapExtent, TruncatedSizeExactBoundAndFloatProductForTheCheck) {
  struct Case {
    float width, height;
    Vec2I size;
    size_t numFloats;
    uint32_t mapBufferSize;
  };
  const Case cases[] = {
      {640.0f, 480.0f, Vec2I(640, 480), 307200, 307200},
      {10.5f, 3.9f, Vec2I(10, 3), 30, 40},  // 10.5 * 3.9 = 40.95
      // 4097 x 4097 = 16785409 is not a float: the logged comparison uses the
      // rounded product, every write bound the exact one.
      {4097.0f, 4097.0f, Vec2I(4097, 4097), 16785409, 16785408}};
  for (const Case& c : cases) {
    const VIO::MapExtent e = VIO::mapExtentOf(AR::Math::Vector<float, 2>(c.width, c.height));
    EXPECT_TRUE(e.valid);
    EXPECT_EQ(e.size, c.size);
    EXPECT_EQ(e.numFloats, c.numFloats);
    EXPECT_EQ(e.mapBufferSize, c.mapBufferSize);
  }
}

TEST(MapExtent, UnrepresentableSizesGiveAnEmptyMap) {
  const float bad[][2] = {{kNaN, 480.0f},  {640.0f, kNaN},   {-640.0f, 480.0f}, {640.0f, -2.0f},
                          {kInf, 1.0f},    {3e9f, 1.0f},     {70000.0f, 70000.0f},
                          {1073741824.0f, 1.0f}};  // a 2^30-pixel row has no uint32 stride
  for (const auto& s : bad) {
    const VIO::MapExtent e = VIO::mapExtentOf(s[0], s[1]);
    EXPECT_FALSE(e.valid) << s[0] << " x " << s[1];
    EXPECT_EQ(e.size, Vec2I(0, 0));
    EXPECT_EQ(e.numFloats + e.mapBufferSize, 0u);
  }
}

}  // namespace
