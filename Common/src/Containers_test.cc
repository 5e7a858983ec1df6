#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AR/Common/SmallVector.h"
#include "AR/Common/Vector.h"
#include "LogCapture.h"

namespace AR {
namespace Common {
namespace {

template <typename Grow>
class VectorTest : public ::testing::Test {};
using GrowthPolicies = ::testing::Types<VectorGrowDoubling<4>, VectorGrowConstant<4>>;
TYPED_TEST_SUITE(VectorTest, GrowthPolicies);

TYPED_TEST(VectorTest, InsertsErasesAndPushesItsOwnElementWhileGrowing) {
  Vector<std::string, TypeParam> v;
  for (const char* s : {"b", "d", "f", "h"}) v.push_back(std::string(40, *s));  // on the heap
  EXPECT_TRUE(v.insert(1, v[3]));  // the source lives in the storage being replaced
  EXPECT_FALSE(v.insert(v.size() + 1, v[0]));
  v.erase(size_t(0));
  v.erase(size_t(99));  // out of range: ignored
  std::string joined;
  for (const std::string& s : v) joined += s[0];
  EXPECT_EQ(joined, "hdfh");
}

TEST(SmallVector, ReportsPushesBeyondItsCapacity) {
  AR::Test::LogCapture capture;
  SmallVector<double, 4> v;
  for (int i = 0; i < 5; ++i) v.push_back(i);
  EXPECT_EQ(v.size(), 4u);
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"AR ERROR: push_back: current_size=4, "
                                     "MAX_SIZE=4. 8b, AR::Common::SmallVector is full\n"});
}

}  // namespace
}  // namespace Common
}  // namespace AR
