#include "MapBuffers.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "LogCapture.h"

namespace {

using Vec2I = AR::Math::Vector<int, 2>;
using AR::CV::Image;

/// An image whose rows are shorter than its allocation (stride gaps), filled
/// with x + 10 y.
Image<float> imageWithGaps(int width, int height) {
  Image<float> image(Vec2I(width + 3, height + 1), AR::Common::MEMORY_ALIGNMENT_16);
  image.clear(-7.0f);
  image.allocPixels(Vec2I(width, height), AR::Common::MEMORY_ALIGNMENT_16, false);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) image.at(x, y) = float(x + 10 * y);
  return image;
}

TEST(CopyImageToArray, PacksRowsWithoutStrideGaps) {
  Image<float> image = imageWithGaps(4, 3);
  ASSERT_EQ(image.allocatedSize(), Vec2I(7, 4));
  std::vector<float> out(12, 0.0f);
  VIO::copyImageToArray(image, out.data());
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(out[size_t(x + 4 * y)], float(x + 10 * y));
  VIO::copyImageToArray(image, nullptr);  // nothing to write to, nothing written
}

TEST(CopyMapToArrays, MatchingSizesCopyBothAndLogTheCounts) {
  AR::Test::LogCapture log;
  std::array<Image<float>, 2> images{imageWithGaps(4, 3), imageWithGaps(4, 3)};
  AR::Common::ArrayView<Image<float>> view(images);
  std::vector<float> x(12), y(12);
  VIO::copyMapToArrays(view, x.data(), 12, y.data(), 12);
  EXPECT_EQ(x[7], 13.0f);
  EXPECT_EQ(y[11], 23.0f);
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_EQ(log.messages()[0],
            "AR DEBUG: mapXY[0]: 12, mapXY[1]: 12, mapXOut_size=12, mapYOut_size=12\n");
}

TEST(CopyMapToArrays, WrongSizesAreReportedAndTheCopyStaysInsideTheArrays) {
  AR::Test::LogCapture log;
  std::array<Image<float>, 2> images{imageWithGaps(4, 3), imageWithGaps(4, 3)};
  AR::Common::ArrayView<Image<float>> view(images);
  std::vector<float> x(16, 5.0f), y(5, 5.0f);
  VIO::copyMapToArrays(view, x.data(), 15, y.data(), 4);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[0].numPixels() == mapXOut_size "
                                "VIO/src/StereoRectify(144)"),
            1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY[1].numPixels() == mapYOut_size "
                                "VIO/src/StereoRectify(145)"),
            1u);
  EXPECT_EQ(x[11], 23.0f);
  EXPECT_EQ(x[12], 5.0f);  // a larger array keeps its tail
  EXPECT_EQ(y[3], 3.0f);   // a smaller one gets the start of the map
  EXPECT_EQ(y[4], 5.0f);
}

TEST(CopyMapToArrays, ViewWithoutTwoImagesIsReportedAndCopiesWhatItHas) {
  AR::Test::LogCapture log;
  std::array<Image<float>, 1> images{imageWithGaps(2, 2)};
  AR::Common::ArrayView<Image<float>> view(images);
  std::vector<float> x(4, 0.0f), y(4, 5.0f);
  VIO::copyMapToArrays(view, x.data(), 4, y.data(), 4);
  EXPECT_EQ(log.countContaining("AR_ASSERT mapXY.size() == 2 VIO/src/StereoRectify(143)"), 1u);
  EXPECT_EQ(log.countContaining("idx<numItems"), 0u);
  EXPECT_EQ(x[3], 11.0f);
  EXPECT_EQ(y[0], 5.0f);
}

}  // namespace
