#include "MapBuffers.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

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
