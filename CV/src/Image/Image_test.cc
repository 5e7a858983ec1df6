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
using AR::Common::MEMORY_ALIGNMENT_8;

std::string assertLine(const std::string& condition, int line, const std::string& function) {
  return "AR ERROR: AR_ASSERT " + condition + " CV/include/AR/CV/Image/Image(" +
         std::to_string(line) + ") " + function.substr(0, 100) + "\n";
}

TEST(ImageAlloc, OwnsAlignedMemoryOfTheRequestedSize) {
  Image<float> image(Vec2I(7, 3), MEMORY_ALIGNMENT_64);
  ASSERT_NE(image.data(), nullptr);
  EXPECT_TRUE(image.ownsMemory());
  EXPECT_EQ(image.size(), Vec2I(7, 3));
  EXPECT_EQ(image.allocatedSize(), Vec2I(7, 3));
  EXPECT_EQ(image.stride(), 28u);
  EXPECT_EQ(image.numPixels(), 21u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(image.data()) % 64, 0u);
  EXPECT_EQ(AR::Common::OS::getAlignment(image.data()), MEMORY_ALIGNMENT_64);
}

TEST(ImageAlloc, ReusesCapacityByRefactorisingIt) {
  Image<float> image(Vec2I(100, 10), MEMORY_ALIGNMENT_16);
  float* before = image.data();
  ASSERT_TRUE(image.allocPixels(Vec2I(50, 20), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.data(), before);
  EXPECT_EQ(image.size(), Vec2I(50, 20));
  EXPECT_EQ(image.allocatedSize(), Vec2I(50, 20));
  EXPECT_EQ(image.stride(), 200u);
  EXPECT_EQ(image.descriptor().rowBytes, 200u);
  EXPECT_EQ(image.descriptor().numBytes, 4000u);
  // A weaker alignment is also served by the existing memory.
  ASSERT_TRUE(image.allocPixels(Vec2I(25, 40), MEMORY_ALIGNMENT_8, false));
  EXPECT_EQ(image.data(), before);
  EXPECT_EQ(image.allocatedSize(), Vec2I(25, 40));
}

TEST(ImageAlloc, AllocatesWhenNoFactorisationFits) {
  // Capacity 100: w' = 11 does not divide it and 12 x 9 exceeds it.
  Image<float> image(Vec2I(10, 10), MEMORY_ALIGNMENT_16);
  ASSERT_TRUE(image.allocPixels(Vec2I(11, 9), MEMORY_ALIGNMENT_16, false));
  EXPECT_TRUE(image.ownsMemory());
  EXPECT_EQ(image.size(), Vec2I(11, 9));
  EXPECT_EQ(image.allocatedSize(), Vec2I(11, 9));
  EXPECT_EQ(image.stride(), 44u);
  image.clear(2.0f);  // the whole new block is addressable (ASan checks)
  EXPECT_EQ(image.at(10, 8), 2.0f);
}

TEST(ImageAlloc, SmallerSizeKeepsTheRowLayout) {
  Image<float> image(Vec2I(100, 10), MEMORY_ALIGNMENT_16);
  float* before = image.data();
  ASSERT_TRUE(image.allocPixels(Vec2I(50, 5), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.data(), before);
  EXPECT_EQ(image.allocatedSize(), Vec2I(100, 10));
  EXPECT_EQ(image.stride(), 400u);
  image.at(3, 4) = 9.0f;
  EXPECT_EQ(before[3 + 100 * 4], 9.0f);
  EXPECT_EQ(image.pixels(0, 4), before + 400);
}

TEST(ImageAlloc, ReallocateOrStricterAlignmentTakesFreshMemoryOfExactSize) {
  Image<float> image(Vec2I(100, 10), MEMORY_ALIGNMENT_16);
  ASSERT_TRUE(image.allocPixels(Vec2I(20, 5), MEMORY_ALIGNMENT_16, true));
  EXPECT_EQ(image.allocatedSize(), Vec2I(20, 5));
  EXPECT_TRUE(image.ownsMemory());
  ASSERT_TRUE(image.allocPixels(Vec2I(4, 5), MEMORY_ALIGNMENT_64, false));
  EXPECT_EQ(image.allocatedSize(), Vec2I(4, 5));
  EXPECT_EQ(image.alignment(), MEMORY_ALIGNMENT_64);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(image.data()) % 64, 0u);
}

TEST(ImageAlloc, EmptyAndNegativeRequestsHoldNoPixels) {
  Image<float> image(Vec2I(4, 4));
  ASSERT_TRUE(image.allocPixels(Vec2I(0, 5), MEMORY_ALIGNMENT_16, true));
  EXPECT_EQ(image.data(), nullptr);
  EXPECT_FALSE(image.ownsMemory());
  EXPECT_EQ(image.numPixels(), 0u);
  ASSERT_TRUE(image.allocPixels(Vec2I(-3, -2), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.size(), Vec2I(0, 0));
  EXPECT_EQ(image.numPixels(), 0u);
}

TEST(ImageAlloc, FailedAllocationLeavesAnEmptyImage) {
  Image<float> image(Vec2I(8, 8));
  EXPECT_FALSE(image.allocPixels(Vec2I(1 << 30, 1 << 30), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.data(), nullptr);
  EXPECT_FALSE(image.ownsMemory());
  EXPECT_EQ(image.numPixels(), 0u);
  EXPECT_EQ(image.descriptor().numBytes, 0u);
}

TEST(ImageClear, FillsOnlyTheImageNotTheSpareColumns) {
  Image<float> image(Vec2I(6, 4));
  image.clear(7.0f);
  ASSERT_TRUE(image.allocPixels(Vec2I(3, 2), MEMORY_ALIGNMENT_16, false));
  image.clear(-1.0f);
  const float* block = image.data();
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 6; ++x)
      EXPECT_EQ(block[x + 6 * y], (x < 3 && y < 2) ? -1.0f : 7.0f) << x << "," << y;
}

TEST(ImageClear, WithoutMemoryDoesNothing) {
  Image<float> image;
  image.clear(1.0f);
  EXPECT_EQ(image.data(), nullptr);
}

TEST(ImageOverCallerBuffer, WritesInPlaceAndNeverFrees) {
  // Stride of 5 floats for a 4-wide image: column 4 of each row is spare.
  std::vector<float> buffer(5 * 3, 0.0f);
  {
    Image<float> image(buffer.data(), Vec2I(4, 3), 20, AR::Common::OS::getAlignment(buffer.data()));
    EXPECT_FALSE(image.ownsMemory());
    EXPECT_EQ(image.allocatedSize(), Vec2I(5, 3));
    image.clear(3.0f);
    image.at(PixelPos(1, 2)) = 8.0f;
  }  // the buffer belongs to the vector: freeing it here would be a double free
  EXPECT_EQ(buffer[1 + 5 * 2], 8.0f);
  EXPECT_EQ(buffer[4], 0.0f);
  EXPECT_EQ(buffer[3], 3.0f);
}

TEST(ImageOverCallerBuffer, InconsistentLayoutIsRefused) {
  AR::Test::LogCapture log;
  std::array<float, 8> buffer{};
  Image<float> image(buffer.data(), Vec2I(4, 2), 12, AR::Common::MEMORY_ALIGNMENT_4);
  EXPECT_EQ(image.data(), nullptr);
  EXPECT_EQ(image.numPixels(), 0u);
  EXPECT_EQ(log.countContaining("AR_ASSERT size(0) >= 0"), 1u);
}

TEST(ImageAccess, OutsideTheImageIsReportedAndNeverWritten) {
  AR::Test::LogCapture log;
  Image<float> image(Vec2I(3, 2));
  image.clear(0.0f);
  const Image<float>& constImage = image;

  EXPECT_EQ(constImage.at(3, 0), 0.0f);
  EXPECT_TRUE(log.has(assertLine("nX >= 0 && nX<(int)(mSize(0))", 275,
                                 "const T& AR::CV::Image<T>::at(int, int) const [with T = float]")));
  log.clear();
  EXPECT_EQ(constImage.at(0, -1), 0.0f);
  EXPECT_TRUE(log.has(assertLine("nY >= 0 && nY<(int)(mSize(1))", 276,
                                 "const T& AR::CV::Image<T>::at(int, int) const [with T = float]")));
  log.clear();

  image.at(PixelPos(-1, 5)) = 42.0f;
  const std::string posFunction =
      "T& AR::CV::Image<T>::at(const AR::CV::PixelPos&) [with T = float; AR::CV::PixelPos = "
      "AR::Math::Vector<int, 2>]";
  EXPECT_TRUE(log.has(assertLine("nPos(0) >= 0 && nPos(0)<(int)(mSize(0))", 303, posFunction)));
  EXPECT_TRUE(log.has(assertLine("nPos(1) >= 0 && nPos(1)<(int)(mSize(1))", 304, posFunction)));
  EXPECT_EQ(log.messages().size(), 2u);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(image.at(x, y), 0.0f);
  // The placeholder does not keep what was written to it.
  EXPECT_EQ(constImage.at(7, 7), 0.0f);
}

TEST(ImageAccess, EmptyImageReportsMissingPixels) {
  AR::Test::LogCapture log;
  Image<float> image;
  image.at(PixelPos(0, 0)) = 1.0f;
  EXPECT_EQ(log.countContaining("AR_ASSERT mPixels CV/include/AR/CV/Image/Image(302)"), 1u);
  const Image<float>& constImage = image;
  EXPECT_EQ(constImage.at(0, 0), 0.0f);
  EXPECT_EQ(log.countContaining("AR_ASSERT mPixels CV/include/AR/CV/Image/Image(274)"), 1u);
}

TEST(ImageDescriptor, OldFloatCodeIsReplacedOnRefresh) {
  Image<float> image(Vec2I(5, 2));
  EXPECT_EQ(image.descriptor().format, AR::CV::IMAGE_FORMAT_FLOAT32);
  EXPECT_EQ(image.descriptor().data, image.data());
  EXPECT_EQ(image.descriptor().numBytes, 40u);
  EXPECT_EQ(image.descriptor().rowBytes, 20u);
  image.setFormat(0x10001100u);
  EXPECT_EQ(image.descriptor().format, 0x10001104u);
  image.setFormat(0x12345678u);
  ASSERT_TRUE(image.allocPixels(Vec2I(2, 5), MEMORY_ALIGNMENT_16, false));
  EXPECT_EQ(image.descriptor().format, 0x12345678u);
  EXPECT_EQ(image.descriptor().rowBytes, 8u);
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
  EXPECT_EQ(c.data(), pixels);
  EXPECT_EQ(c.descriptor().data, pixels);
}

}  // namespace
