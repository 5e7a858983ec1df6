#include "AR/Math/MathDebugging.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace AR {
namespace Math {
namespace {

using AR::Common::Logger;

class MathDebuggingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedLevel_ = Logger::getInstance().getLevel();
    Logger::getInstance().setLevel(Logger::LEVEL_DEBUG);
  }
  void TearDown() override { Logger::getInstance().setLevel(savedLevel_); }

  AR::Test::LogCapture log_;

 private:
  Logger::LEVEL savedLevel_ = Logger::LEVEL_DEBUG;
};

template <typename T>
class IsGoodNumTest : public MathDebuggingTest {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(IsGoodNumTest, Precisions);

TYPED_TEST(IsGoodNumTest, OrdinaryValuesAreGoodAndSilent) {
  using L = std::numeric_limits<TypeParam>;
  for (TypeParam x : {TypeParam(0), -TypeParam(0), TypeParam(1), TypeParam(-3.5e14),
                      TypeParam(1e15f), TypeParam(-1e15f), TypeParam(1e-30f), TypeParam(-1e-30f)}) {
    EXPECT_TRUE(isGoodNum(x, false)) << x;
    EXPECT_TRUE(isGoodNum(x, true)) << x;
  }
  EXPECT_TRUE(isGoodNum(L::denorm_min(), true));
  EXPECT_TRUE(this->log_.messages().empty());
}

TYPED_TEST(IsGoodNumTest, NanInfiniteAndHugeValuesAreBad) {
  using L = std::numeric_limits<TypeParam>;
  // The bound is the float 1e15f (999999986991104) in both precisions.
  const TypeParam justAbove = std::nextafter(TypeParam(1e15f), L::infinity());
  for (TypeParam x : {L::quiet_NaN(), L::infinity(), -L::infinity(), justAbove, -justAbove,
                      TypeParam(1e16f), L::max()}) {
    EXPECT_FALSE(isGoodNum(x, false)) << x;
    EXPECT_FALSE(isGoodNum(x, true)) << x;
  }
  EXPECT_EQ(this->log_.countContaining(" is nan or inf or denormal or uninitialised"), 14u);
}

TYPED_TEST(IsGoodNumTest, TinyValuesAreBadUnlessAllowed) {
  using L = std::numeric_limits<TypeParam>;
  // The bound is the float 1e-30f, slightly above the double 1e-30.
  const TypeParam justBelow = std::nextafter(TypeParam(1e-30f), TypeParam(0));
  for (TypeParam x : {justBelow, -justBelow, TypeParam(1e-31f), L::min(), L::denorm_min()}) {
    EXPECT_FALSE(isGoodNum(x, false)) << x;
    EXPECT_TRUE(isGoodNum(x, true)) << x;
  }
}

TEST_F(MathDebuggingTest, BadValuesAreLoggedInHexadecimal) {
  EXPECT_FALSE(isGoodNum(1e16, false));
  EXPECT_FALSE(isGoodNum(1e16f, false));
  EXPECT_FALSE(isGoodNum(1e-31f, false));
  EXPECT_FALSE(isGoodNum(-std::numeric_limits<float>::infinity(), true));
  EXPECT_FALSE(isGoodNum(std::numeric_limits<double>::quiet_NaN(), true));
  std::vector<std::string> expected;
  for (const char* value : {"0x1.1c37937e08p+53", "0x1.1c3794p+53", "0x1.039d66p-103", "-inf", "nan"})
    expected.push_back(std::string("AR ERROR: Bad float: ") + value +
                       " is nan or inf or denormal or uninitialised\n");
  EXPECT_EQ(log_.messages(), expected);
}

TEST_F(MathDebuggingTest, BadVectorNamesTheFirstBadElement) {
  EXPECT_FALSE(isGoodVector(Vec2D(1e16, 0), false));
  ASSERT_EQ(log_.messages().size(), 2u);
  EXPECT_EQ(log_.messages()[0],
            "AR ERROR: Bad float: 0x1.1c37937e08p+53 is nan or inf or denormal or uninitialised\n");
  EXPECT_EQ(log_.messages()[1], "AR ERROR: (element 0 in vector)\n");

  // Stops at the first bad element: the infinity after the NaN is not reported.
  log_.clear();
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_FALSE(isGoodVector(Vec4F(1.f, 2.f, std::nanf(""), inf), true));
  ASSERT_EQ(log_.messages().size(), 2u);
  EXPECT_EQ(log_.messages()[0],
            "AR ERROR: Bad float: nan is nan or inf or denormal or uninitialised\n");
  EXPECT_EQ(log_.messages()[1], "AR ERROR: (element 2 in vector)\n");
}

TEST_F(MathDebuggingTest, TinyVectorElementsDependOnAllowTiny) {
  EXPECT_FALSE(isGoodVector(Vec2F(1e-31f, 1.f), false));
  EXPECT_EQ(log_.messages().size(), 2u);
  EXPECT_TRUE(log_.has("AR ERROR: (element 0 in vector)\n"));
  log_.clear();
  EXPECT_TRUE(isGoodVector(Vec2F(1e-31f, 1.f), true));
  EXPECT_TRUE(isGoodVector(Vec3D(0, -1e14, 1e-29), false));
  EXPECT_TRUE(log_.messages().empty());
}

}  // namespace
}  // namespace Math
}  // namespace AR
