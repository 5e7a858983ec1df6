#include "AR/CV/Image/Image.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"

// Lets the allocation-failure test see a null result instead of the address
// sanitizer's report of an impossible request.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

using AR::CV::Image;
using AR::CV::PixelPos;
using Vec2I = AR::Math::Vector<int, 2>;
using AR::Common::MEMORY_ALIGNMENT_16;
using AR::Common::MEMORY_ALIGNMENT_64;

std::string assertLine(const std::string& condition, int line, const std::string& function) {
  return "AR ERROR: AR_ASSERT " + condition + " CV/include/AR/CV/Image/Image(" +
         std::to_string(line) + ") " + function.substr(0, 100) + "\n";
}

void expectLayout(const Image<float>& image, Vec2I size, Vec2I allocated) {
  EXPECT_EQ(image.size(), size);
  EXPECT_EQ(image.allocatedSize(), allocated);
  EXPECT_EQ(image.stride(), uint32_t(allocated(0)) * 4u);
  EXPECT_EQ(image.descriptor().rowBytes, uint32_t(allocated(0)) * 4u);
  EXPECT_EQ(image.descriptor().numBytes, size_t(allocated(0)) * size_t(allocated(1)) * 4u);
  EXPECT_EQ(image.descriptor().data, image.data());
}

TEST(ImageAlloc, ReusesMemoryOnlyWhenItFitsAndIsAlignedEnough) {
  struct Case {
    Vec2I from, to;
    AR::Common::MEMORY_ALIGNMENT alignment;
    bool reallocate, reused;
    Vec2I allocated;
  };
  const Case cases[] = {
      {{100, 10}, {50, 20}, MEMORY_ALIGNMENT_16, false, true, {50, 20}},  // capacity refactorised
      {{100, 10}, {25, 40}, AR::Common::MEMORY_ALIGNMENT_8, false, true, {25, 40}},
      {{100, 10}, {50, 5}, MEMORY_ALIGNMENT_16, false, true, {100, 10}},  // rows keep their stride
      // Capacity 100: w' = 11 does not divide it and 12 x 9 exceeds it.
      {{10, 10}, {11, 9}, MEMORY_ALIGNMENT_16, false, false, {11, 9}},
      {{100, 10}, {20, 5}, MEMORY_ALIGNMENT_16, true, false, {20, 5}},
      {{100, 10}, {4, 5}, MEMORY_ALIGNMENT_64, false, false, {4, 5}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    Image<float> image(c.from, MEMORY_ALIGNMENT_16);
    const float* before = image.data();
    ASSERT_TRUE(image.allocPixels(c.to, c.alignment, c.reallocate));
    // Fresh memory may land at the old address, so only reuse is checked.
    if (c.reused) {
      EXPECT_EQ(image.data(), before);
    }
    EXPECT_TRUE(image.ownsMemory());
    expectLayout(image, c.to, c.allocated);
    EXPECT_GE(AR::Common::OS::getAlignment(image.data()), c.alignment);
    image.clear(2.0f);  // the whole image is addressable (ASan checks)
    EXPECT_EQ(image.at(c.to(0) - 1, c.to(1) - 1), 2.0f);
  }
}

TEST(ImageAlloc, ClearFillsOnlyTheImageNotTheSpareColumns) {
  Image<float> image(Vec2I(6, 4), MEMORY_ALIGNMENT_16);
  float* block = image.data();
  image.clear(7.0f);
  ASSERT_TRUE(image.allocPixels(Vec2I(3, 2), MEMORY_ALIGNMENT_16, false));
  image.clear(-1.0f);
  image.at(2, 1) = 9.0f;
  EXPECT_EQ(image.pixels(0, 1), block + 6);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 6; ++x)
      EXPECT_EQ(block[x + 6 * y], x == 2 && y == 1 ? 9.0f : (x < 3 && y < 2) ? -1.0f : 7.0f)
          << x << "," << y;
}

TEST(ImageAlloc, EmptyNegativeAndImpossibleRequestsHoldNoPixels) {
  Image<float> image(Vec2I(4, 4));
  ASSERT_TRUE(image.allocPixels(Vec2I(0, 5), MEMORY_ALIGNMENT_16, true));
  EXPECT_EQ(image.data(), nullptr);
  EXPECT_FALSE(image.ownsMemory());
  image.clear(1.0f);  // without memory: nothing to fill
  ASSERT_TRUE(image.allocPixels(Vec2I(-3, -2), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.size(), Vec2I(0, 0));

  ASSERT_TRUE(image.allocPixels(Vec2I(8, 8), MEMORY_ALIGNMENT_16, false));
  EXPECT_FALSE(image.allocPixels(Vec2I(1 << 30, 1 << 30), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.data(), nullptr);
  EXPECT_FALSE(image.ownsMemory());
  EXPECT_EQ(image.numPixels(), 0u);
  EXPECT_EQ(image.descriptor().numBytes, 0u);
}

TEST(ImageOverCallerBuffer, WritesInPlaceAndNeverFrees) {
  // Stride of 5 floats for a 4-wide image: column 4 of each row is spare.
  std::vector<float> buffer(5 * 3, 0.0f);
  {
    Image<float> image(buffer.data(), Vec2I(4, 3), 20, AR::Common::OS::getAlignment(buffer.data()));
    EXPECT_FALSE(image.ownsMemory());
    expectLayout(image, Vec2I(4, 3), Vec2I(5, 3));
    image.clear(3.0f);
    image.at(PixelPos(1, 2)) = 8.0f;
  }  // the buffer belongs to the vector: freeing it here would be a double free
  EXPECT_EQ(buffer[1 + 5 * 2], 8.0f);
  EXPECT_EQ(buffer[4], 0.0f);
  EXPECT_EQ(buffer[3], 3.0f);

  AR::Test::LogCapture log;
  const Image<float> tooNarrow(buffer.data(), Vec2I(4, 2), 12, AR::Common::MEMORY_ALIGNMENT_4);
  EXPECT_EQ(tooNarrow.data(), nullptr);
  EXPECT_EQ(tooNarrow.numPixels(), 0u);
  EXPECT_EQ(log.countContaining("AR_ASSERT size(0) >= 0"), 1u);
}

TEST(ImageAccess, OutsideTheImageIsReportedAndNeverWritten) {
  AR::Test::LogCapture log;
  Image<float> image(Vec2I(3, 2));
  image.clear(0.0f);
  const Image<float>& constImage = image;
  const std::string constXY = "const T& AR::CV::Image<T>::at(int, int) const [with T = float]";
  const std::string pos =
      "T& AR::CV::Image<T>::at(const AR::CV::PixelPos&) [with T = float; AR::CV::PixelPos = "
      "AR::Math::Vector<int, 2>]";

  EXPECT_EQ(constImage.at(3, -1), 0.0f);
  image.at(PixelPos(-1, 5)) = 42.0f;
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                assertLine("nX >= 0 && nX<(int)(mSize(0))", 275, constXY),
                assertLine("nY >= 0 && nY<(int)(mSize(1))", 276, constXY),
                assertLine("nPos(0) >= 0 && nPos(0)<(int)(mSize(0))", 303, pos),
                assertLine("nPos(1) >= 0 && nPos(1)<(int)(mSize(1))", 304, pos)}));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(image.at(x, y), 0.0f);
  // The placeholder does not keep what was written to it.
  EXPECT_EQ(constImage.at(7, 7), 0.0f);

  log.clear();
  Image<float> empty;
  empty.at(PixelPos(0, 0)) = 1.0f;
  EXPECT_EQ(static_cast<const Image<float>&>(empty).at(0, 0), 0.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT mPixels CV/include/AR/CV/Image/Image(302)"), 1u);
  EXPECT_EQ(log.countContaining("AR_ASSERT mPixels CV/include/AR/CV/Image/Image(274)"), 1u);
}

TEST(ImageMove, TransfersOwnershipAndEmptiesTheSource) {
  Image<float> a(Vec2I(4, 4));
  float* pixels = a.data();
  Image<float> b(std::move(a));
  EXPECT_EQ(b.data(), pixels);
  EXPECT_TRUE(b.ownsMemory());
  EXPECT_EQ(a.data(), nullptr);  // NOLINT(bugprone-use-after-move): documented state
  EXPECT_EQ(a.numPixels(), 0u);
  Image<float> c(Vec2I(2, 2));
  c = std::move(b);  // c's own block is freed, b's moves over (ASan checks both)
  EXPECT_EQ(c.descriptor().data, pixels);
}

TEST(ImageDescriptor, OldFloatCodeIsReplacedOnRefresh) {
  Image<float> image(Vec2I(5, 2));
  EXPECT_EQ(image.descriptor().format, AR::CV::IMAGE_FORMAT_FLOAT32);
  image.setFormat(0x10001100u);
  EXPECT_EQ(image.descriptor().format, 0x10001104u);
  image.setFormat(0x12345678u);
  image.release();
  EXPECT_EQ(image.descriptor().format, 0x12345678u);
}

}  // namespace
