#include "AR/Common/ArrayView.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "AR/CV/Image/Image.h"
#include "LogCapture.h"

namespace {

using AR::Common::ArrayView;

size_t totalLength(const ArrayView<const std::string>& names) {
  size_t n = 0;
  for (const std::string& name : names) n += name.size();
  return n;
}

TEST(ArrayView, ViewsContainersWithoutCopying) {
  std::vector<std::string> names{"left", "right"};
  ArrayView<std::string> view(names);
  view[1] = "rightmost";
  EXPECT_EQ(names[1], "rightmost");
  EXPECT_EQ(totalLength(view), 13u);  // mutable view as const view
  EXPECT_EQ(totalLength(std::as_const(names)), 13u);
  const std::array<std::string, 3> fixed{"a", "bb", "ccc"};
  std::string plain[2] = {"x", "yz"};
  EXPECT_EQ(totalLength(fixed), 6u);
  EXPECT_EQ(totalLength(plain), 3u);
  EXPECT_EQ(totalLength(ArrayView<const std::string>()), 0u);
}

TEST(ArrayView, OutOfRangeIndexIsReportedAndNeverReachesTheItems) {
  AR::Test::LogCapture log;
  std::array<AR::CV::Image<float>, 2> images;
  images[0].allocPixels(AR::Math::Vector<int, 2>(2, 2), AR::Common::MEMORY_ALIGNMENT_16, false);
  ArrayView<AR::CV::Image<float>> view(images);

  AR::CV::Image<float>& beyond = view[2];
  EXPECT_EQ(beyond.numPixels(), 0u);
  // Whatever is done to the placeholder is gone at the next bad index.
  beyond.allocPixels(AR::Math::Vector<int, 2>(3, 3), AR::Common::MEMORY_ALIGNMENT_16, false);
  const ArrayView<AR::CV::Image<float>>& constView = view;
  EXPECT_EQ(constView[5].numPixels(), 0u);
  EXPECT_EQ(view[0].numPixels(), 4u);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "AR ERROR: AR_ASSERT idx<numItems Common/include/AR/Common/ArrayView(105) "
                "ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t)\n",
                "AR ERROR: AR_ASSERT idx<numItems Common/include/AR/Common/ArrayView(112) "
                "const ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t) const\n"}));
}

TEST(ArrayViewDeathTest, OutOfRangeWithoutDefaultItemAborts) {
  struct NoDefault {
    explicit NoDefault(int v) : value(v) {}
    int value;
  };
  NoDefault items[1] = {NoDefault(3)};
  ArrayView<NoDefault> view(items);
  EXPECT_EQ(view[0].value, 3);
  EXPECT_DEATH(view[1], "idx<numItems");
}

}  // namespace
