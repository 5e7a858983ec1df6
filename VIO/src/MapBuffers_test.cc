#include "MapBuffers.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "EntryPointRules.h"
#include "LogCapture.h"

namespace {

TEST(MapExtent, ExactWriteBoundFloatProductForTheCheckAndEmptyWhenUnrepresentable) {
  struct Case { float width, height; int w, h; size_t numFloats; uint32_t mapBufferSize; };
  const Case cases[] = {
      {640.0f, 480.0f, 640, 480, 307200, 307200},
      {10.5f, 3.9f, 10, 3, 30, 40},  // 10.5 * 3.9 = 40.95
      // 4097 x 4097 is not a float: the logged check uses the rounded product, writes the exact one.
      {4097.0f, 4097.0f, 4097, 4097, 16785409, 16785408},
      // Refused instead of converted: NaN, negative, infinite, 2^31 (beyond int32), a product beyond
      // uint32, and a 2^30-pixel row, which has no uint32 stride.
      {std::numeric_limits<float>::quiet_NaN(), 480.0f, 0, 0, 0, 0}, {640.0f, -2.0f, 0, 0, 0, 0},
      {std::numeric_limits<float>::infinity(), 1.0f, 0, 0, 0, 0}, {2147483648.0f, 1.0f, 0, 0, 0, 0},
      {70000.0f, 70000.0f, 0, 0, 0, 0}, {1073741824.0f, 1.0f, 0, 0, 0, 0}};
  for (const Case& c : cases) {
    const VIO::MapExtent e = VIO::mapExtentOf(AR::Math::Vector<float, 2>(c.width, c.height));
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    EXPECT_EQ(e.valid, c.numFloats > 0);
    EXPECT_EQ(e.size, AR::Math::Vec2I(c.w, c.h));
    EXPECT_EQ(e.numFloats, c.numFloats);
    EXPECT_EQ(e.mapBufferSize, c.mapBufferSize);
  }
}

TEST(CopyMapToArrays, PacksRowsReportsWrongSizesAndStaysInsideTheArrays) {
  std::array<AR::CV::Image<float>, 2> images;
  for (auto& image : images) {  // 4 x 3 pixels x + 10 y in a 7 x 4 allocation: rows with stride gaps
    image.allocPixels({7, 4}, AR::Common::MEMORY_ALIGNMENT_16, false);
    image.allocPixels({4, 3}, AR::Common::MEMORY_ALIGNMENT_16, false);
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 4; ++x) image.at(x, y) = float(x + 10 * y);
  }
  AR::Test::LogCapture log;
  std::vector<float> x(16, 5.0f), y(5, 5.0f);
  VIO::copyMapToArrays(images, x.data(), 15, y.data(), 4);
  // A larger array keeps its tail, a smaller one gets the start of the map.
  for (int i = 0; i < 16; ++i) EXPECT_EQ(x[size_t(i)], i < 12 ? float(i % 4 + 10 * (i / 4)) : 5.0f);
  EXPECT_EQ(y, (std::vector<float>{0.0f, 1.0f, 2.0f, 3.0f, 5.0f}));
  const std::string e = "AR ERROR: AR_ASSERT ", function =  // cut to 100 characters
      ") void VIO::copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float> >&, float*, uint32_t, flo\n";
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "AR DEBUG: mapXY[0]: 12, mapXY[1]: 12, mapXOut_size=15, mapYOut_size=4\n",
                e + "mapXY[0].numPixels() == mapXOut_size VIO/src/StereoRectify(144" + function,
                e + "mapXY[1].numPixels() == mapYOut_size VIO/src/StereoRectify(145" + function}));

  y.assign(5, 5.0f);  // a view without its Y image: reported, and nothing is copied for it
  VIO::copyMapToArrays(AR::Common::ArrayView<AR::CV::Image<float>>(images.data(), 1), x.data(), 12, y.data(), 4);
  EXPECT_TRUE(log.has(e + "mapXY.size() == 2 VIO/src/StereoRectify(143" + function));
  EXPECT_EQ(y, std::vector<float>(5, 5.0f));
  VIO::copyImageToArray(images[0], nullptr);  // nothing to write to, nothing written
}

}  // namespace
