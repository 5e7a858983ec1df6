#include "MapBuffers.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using Vec2I = AR::Math::Vector<int, 2>;
using AR::CV::Image;

/// A 4 x 3 image whose rows are shorter than its allocation (stride gaps),
/// filled with x + 10 y.
Image<float> imageWithGaps() {
  Image<float> image(Vec2I(7, 4), AR::Common::MEMORY_ALIGNMENT_16);
  image.clear(-7.0f);
  image.allocPixels(Vec2I(4, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) image.at(x, y) = float(x + 10 * y);
  return image;
}

TEST(CopyImageToArray, PacksRowsWithoutStrideGaps) {
  const Image<float> image = imageWithGaps();
  ASSERT_EQ(image.allocatedSize(), Vec2I(7, 4));
  std::vector<float> out(13, 5.0f);
  VIO::copyImageToArray(image, out.data());
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(out[size_t(x + 4 * y)], float(x + 10 * y));
  EXPECT_EQ(out[12], 5.0f);
  VIO::copyImageToArray(image, nullptr);  // nothing to write to, nothing written
}

TEST(CopyMapToArrays, LogsTheCountsReportsWrongSizesAndStaysInsideTheArrays) {
  std::array<Image<float>, 2> images{imageWithGaps(), imageWithGaps()};
  AR::Common::ArrayView<Image<float>> view(images);
  // The logged function text is cut to 100 characters.
  const std::string function =
      " " + std::string("void VIO::copyMapToArrays(const AR::Common::ArrayView<AR::CV::Image<float> "
                        ">&, float*, uint32_t, float*, uint32_t)")
                .substr(0, 100) +
      "\n";
  {
    AR::Test::LogCapture log;
    std::vector<float> x(12), y(12);
    VIO::copyMapToArrays(view, x.data(), 12, y.data(), 12);
    EXPECT_EQ(x[7], 13.0f);
    EXPECT_EQ(y[11], 23.0f);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"AR DEBUG: mapXY[0]: 12, mapXY[1]: 12, "
                                                       "mapXOut_size=12, mapYOut_size=12\n"});
  }
  AR::Test::LogCapture log;
  std::vector<float> x(16, 5.0f), y(5, 5.0f);
  VIO::copyMapToArrays(view, x.data(), 15, y.data(), 4);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "AR DEBUG: mapXY[0]: 12, mapXY[1]: 12, mapXOut_size=15, mapYOut_size=4\n",
                "AR ERROR: AR_ASSERT mapXY[0].numPixels() == mapXOut_size VIO/src/StereoRectify(144)" +
                    function,
                "AR ERROR: AR_ASSERT mapXY[1].numPixels() == mapYOut_size VIO/src/StereoRectify(145)" +
                    function}));
  EXPECT_EQ(x[11], 23.0f);
  EXPECT_EQ(x[12], 5.0f);  // a larger array keeps its tail
  EXPECT_EQ(y[3], 3.0f);   // a smaller one gets the start of the map
  EXPECT_EQ(y[4], 5.0f);
}

TEST(CopyMapToArrays, ViewWithoutTwoImagesIsReportedAndCopiesWhatItHas) {
  AR::Test::LogCapture log;
  std::array<Image<float>, 1> images{imageWithGaps()};
  AR::Common::ArrayView<Image<float>> view(images);
  std::vector<float> x(12, 0.0f), y(12, 5.0f);
  VIO::copyMapToArrays(view, x.data(), 12, y.data(), 12);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY.size() == 2 VIO/src/StereoRectify(143)"), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].numPixels() == mapYOut_size"), 1u);
  // Every access to the missing image (log, check, copy) is reported by the view.
  EXPECT_EQ(log.countContaining("AR_ASSERT idx<numItems"), 3u);
  EXPECT_EQ(x[11], 23.0f);
  EXPECT_EQ(y[0], 5.0f);
}

}  // namespace
