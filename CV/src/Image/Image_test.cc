#include "AR/CV/Image/Image.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "AR/Common/ArrayView.h"
#include "LogCapture.h"

namespace {

using AR::CV::Image;
using AR::CV::PixelPos;
using Vec2I = AR::Math::Vector<int, 2>;
using AR::Common::MEMORY_ALIGNMENT_16;

TEST(Image, AllocReusesMemoryOnlyWhenItFitsAndIsAlignedEnoughAndRefreshesTheDescriptor) {
  struct Case { Vec2I from, to; AR::Common::MEMORY_ALIGNMENT alignment; bool reallocate, reused;
                Vec2I allocated; };
  const Case cases[] = {
      {{100, 10}, {50, 20}, MEMORY_ALIGNMENT_16, false, true, {50, 20}},  // capacity refactorised
      {{100, 10}, {50, 5}, MEMORY_ALIGNMENT_16, false, true, {100, 10}},  // rows keep their stride
      // Capacity 100: w' = 11 does not divide it and 12 x 9 exceeds it.
      {{10, 10}, {11, 9}, MEMORY_ALIGNMENT_16, false, false, {11, 9}},
      {{100, 10}, {20, 5}, MEMORY_ALIGNMENT_16, true, false, {20, 5}},
      {{100, 10}, {4, 5}, AR::Common::MEMORY_ALIGNMENT_64, false, false, {4, 5}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    Image<float> image(c.from, MEMORY_ALIGNMENT_16);
    const float* before = image.data();
    ASSERT_TRUE(image.allocPixels(c.to, c.alignment, c.reallocate));
    EXPECT_TRUE(!c.reused || image.data() == before);  // fresh memory may land there too
    EXPECT_EQ(image.size(), c.to);
    EXPECT_EQ(image.allocatedSize(), c.allocated);
    EXPECT_EQ(image.stride(), uint32_t(c.allocated(0)) * 4u);
    EXPECT_EQ(image.descriptor().numBytes, size_t(c.allocated(0) * c.allocated(1)) * 4u);
    EXPECT_EQ(image.descriptor().data, image.data());
    EXPECT_GE(AR::Common::OS::getAlignment(image.data()), c.alignment);
  }
  Image<float> image(Vec2I(8, 8));
  ASSERT_TRUE(image.allocPixels(Vec2I(-3, 5), MEMORY_ALIGNMENT_16, true));  // empty: no pixels
  EXPECT_EQ(image.data(), nullptr);
  image.clear(1.0f);  // nothing to fill
  image.setFormat(0x10001100u);  // the old code of the same layout is replaced, any other is kept
  EXPECT_EQ(image.descriptor().format, 0x10001104u);
  image.setFormat(0x12345678u);
  EXPECT_EQ(image.descriptor().format, 0x12345678u);
}

TEST(Image, AccessStaysInsideTheRowsOfACallerBufferAndReportsOutOfRangeIndices) {
  AR::Test::LogCapture log;
  std::vector<float> buffer(5 * 3, 0.0f);  // a stride of 5 floats for a 4-wide image: column 4 is spare
  {
    Image<float> image(buffer.data(), Vec2I(4, 3), 20, AR::Common::OS::getAlignment(buffer.data()));
    EXPECT_EQ(image.descriptor().rowBytes, 20u);
    image.clear(3.0f);
    image.at(PixelPos(1, 2)) = 8.0f;
    image.at(PixelPos(4, 0)) = 42.0f;  // unchecked, this would land in the spare column
    EXPECT_EQ(image.pixels(0, 1), buffer.data() + 5);
  }  // the buffer belongs to the vector: freeing it here would be a double free
  for (size_t i = 0; i < 15; ++i) EXPECT_EQ(buffer[i], i % 5 == 4 ? 0.0f : i == 1 + 5 * 2 ? 8.0f : 3.0f) << i;

  log.clear();
  Image<float> empty;
  empty.at(PixelPos(0, 0)) = 1.0f;
  EXPECT_EQ(std::as_const(empty).at(0, 0), 0.0f);  // the placeholder keeps nothing
  std::array<Image<float>, 1> one;
  AR::Common::ArrayView<Image<float>> view(one);
  view[1].allocPixels(Vec2I(3, 3), MEMORY_ALIGNMENT_16, false);
  EXPECT_EQ(std::as_const(view)[5].numPixels(), 0u);

  const std::string e = "AR ERROR: AR_ASSERT ", img = " CV/include/AR/CV/Image/Image(",
                    av = " Common/include/AR/Common/ArrayView(";
  const std::string constXY = ") const T& AR::CV::Image<T>::at(int, int) const [with T = float]\n";
  const std::string pos = ") T& AR::CV::Image<T>::at(const AR::CV::PixelPos&) [with T = float; "
                          "AR::CV::PixelPos = AR::Math::Vecto\n";  // cut to 100 characters
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                e + "mPixels" + img + "302" + pos,
                e + "nPos(0) >= 0 && nPos(0)<(int)(mSize(0))" + img + "303" + pos,
                e + "nPos(1) >= 0 && nPos(1)<(int)(mSize(1))" + img + "304" + pos,
                e + "mPixels" + img + "274" + constXY,
                e + "nX >= 0 && nX<(int)(mSize(0))" + img + "275" + constXY,
                e + "nY >= 0 && nY<(int)(mSize(1))" + img + "276" + constXY,
                e + "idx<numItems" + av + "105) ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t)\n",
                e + "idx<numItems" + av +
                    "112) const ITEM& AR::Common::ArrayView<ITEM>::operator[](size_t) const\n"}));
}

}  // namespace
