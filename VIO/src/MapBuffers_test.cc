#include "MapBuffers.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using Vec2I = AR::Math::Vector<int, 2>;
using AR::CV::Image;

/// A 4 x 3 image in a 7 x 4 allocation (stride gaps), filled with x + 10 y.
Image<float> imageWithGaps() {
  Image<float> image(Vec2I(7, 4), AR::Common::MEMORY_ALIGNMENT_16);
  image.clear(-7.0f);
  image.allocPixels(Vec2I(4, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) image.at(x, y) = float(x + 10 * y);
  return image;
}

TEST(CopyMapToArrays, PacksRowsReportsWrongSizesAndStaysInsideTheArrays) {
  std::array<Image<float>, 2> images{imageWithGaps(), imageWithGaps()};
  AR::Common::ArrayView<Image<float>> view(images);
  AR::Test::LogCapture log;
  std::vector<float> x(16, 5.0f), y(5, 5.0f);
  VIO::copyMapToArrays(view, x.data(), 15, y.data(), 4);
  // A larger array keeps its tail, a smaller one gets the start of the map.
  for (int i = 0; i < 16; ++i) EXPECT_EQ(x[size_t(i)], i < 12 ? float(i % 4 + 10 * (i / 4)) : 5.0f);
  EXPECT_EQ(y, (std::vector<float>{0.0f, 1.0f, 2.0f, 3.0f, 5.0f}));
  const std::string function =  // cut to 100 characters
      ") void VIO::copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float> >&, float*, "
      "uint32_t, flo\n";
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "AR DEBUG: mapXY[0]: 12, mapXY[1]: 12, mapXOut_size=15, mapYOut_size=4\n",
                "AR ERROR: AR_ASSERT mapXY[0].numPixels() == mapXOut_size VIO/src/StereoRectify(144" +
                    function,
                "AR ERROR: AR_ASSERT mapXY[1].numPixels() == mapYOut_size VIO/src/StereoRectify(145" +
                    function}));

  // A view without its Y image: reported, and nothing is copied for it.
  log.clear();
  y.assign(5, 5.0f);
  AR::Common::ArrayView<Image<float>> xOnly(images.data(), 1);
  VIO::copyMapToArrays(xOnly, x.data(), 12, y.data(), 4);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY.size() == 2 VIO/src/StereoRectify(143)"), 1u);
  EXPECT_EQ(y, std::vector<float>(5, 5.0f));
  VIO::copyImageToArray(images[0], nullptr);  // nothing to write to, nothing written
}

}  // namespace
