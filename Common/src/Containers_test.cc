#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "AR/Common/Map.h"
#include "AR/Common/Path.h"
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

TYPED_TEST(VectorTest, GrowsByItsPolicyAndKeepsOrder) {
  Vector<std::string, TypeParam> v;
  std::vector<size_t> capacities;
  for (int i = 0; i < 13; ++i) {
    ASSERT_TRUE(v.push_back("element number " + std::to_string(i)));
    if (capacities.empty() || capacities.back() != v.capacity()) capacities.push_back(v.capacity());
  }
  const std::vector<size_t> expected = TypeParam::nextCapacity(8) == 16
                                           ? std::vector<size_t>{4, 8, 16}
                                           : std::vector<size_t>{4, 8, 12, 16};
  EXPECT_EQ(capacities, expected);
  ASSERT_EQ(v.size(), 13u);
  for (size_t i = 0; i < v.size(); ++i) EXPECT_EQ(v[i], "element number " + std::to_string(i));
}

TYPED_TEST(VectorTest, InsertAndEraseShiftTheRest) {
  Vector<std::string, TypeParam> v;
  for (const char* s : {"b", "d", "f", "h"}) v.push_back(s);
  EXPECT_TRUE(v.insert(0, std::string("a")));  // grows
  EXPECT_TRUE(v.insert(2, std::string("c")));
  EXPECT_TRUE(v.insert(v.size(), std::string("i")));
  EXPECT_FALSE(v.insert(v.size() + 1, std::string("never")));
  v.erase(size_t(3));
  v.erase(v.begin());
  v.erase(size_t(99));  // out of range: ignored
  std::string joined;
  for (const std::string& s : v) joined += s;
  EXPECT_EQ(joined, "bcfhi");
  v.pop_back();
  EXPECT_EQ(v.back(), "h");
  v.clear();
  EXPECT_TRUE(v.empty());
}

TYPED_TEST(VectorTest, PushingOwnElementWhileGrowingIsSafe) {
  Vector<std::string, TypeParam> v;
  for (int i = 0; i < 4; ++i) v.push_back("a long string that lives on the heap " + std::to_string(i));
  ASSERT_EQ(v.size(), v.capacity());
  EXPECT_TRUE(v.push_back(v[0]));  // the source lives in the storage being replaced
  EXPECT_EQ(v[4], v[0]);
  EXPECT_TRUE(v.insert(1, v[3]));
  EXPECT_EQ(v[1], v[4]);
}

TYPED_TEST(VectorTest, MoveOnlyElementsAndCopies) {
  Vector<std::unique_ptr<int>, TypeParam> owners;
  for (int i = 0; i < 9; ++i) owners.push_back(std::make_unique<int>(i));
  owners.erase(size_t(0));
  EXPECT_EQ(*owners[0], 1);
  Vector<std::unique_ptr<int>, TypeParam> moved(std::move(owners));
  EXPECT_EQ(moved.size(), 8u);
  EXPECT_TRUE(owners.empty());  // NOLINT(bugprone-use-after-move): moved-from is empty

  Vector<std::string, TypeParam> a;
  a.push_back("x");
  Vector<std::string, TypeParam> b(a);
  b.push_back("y");
  a = b;
  EXPECT_EQ(a.size(), 2u);
  EXPECT_EQ(a[1], "y");
}

TEST(Map, KeepsKeysSortedAndFindsByBisection) {
  Map<int, std::string, VectorGrowConstant<2>> map;
  for (int key : {5, 1, 9, 3, 7}) EXPECT_TRUE(map.insert(key, "v" + std::to_string(key)).second);
  auto again = map.insert(3, "other");
  EXPECT_FALSE(again.second);
  EXPECT_EQ(again.first->second, "v3");
  std::vector<int> keys;
  for (const auto& item : map) keys.push_back(item.first);
  EXPECT_EQ(keys, (std::vector<int>{1, 3, 5, 7, 9}));
  EXPECT_EQ(map.find(4), map.end());
  EXPECT_EQ(map.lower_bound(4)->first, 5);
  map.erase(map.find(5));
  EXPECT_EQ(map.find(5), map.end());
  EXPECT_EQ(map.find(9)->second, "v9");
}

struct Identity {
  int value;
  bool operator!=(const Identity& other) const { return this != &other; }
};

TEST(Map, FindDataComparesWithTheValuesInequality) {
  Map<int, Identity> map;
  map.insert(1, Identity{10});
  map.insert(2, Identity{10});
  Identity& second = map.find(2)->second;
  EXPECT_EQ(map.find_data(second), map.find(2));
  const Identity lookalike{10};
  EXPECT_EQ(map.find_data(lookalike), map.end());
}

TEST(SmallVector, ReportsPushesBeyondItsCapacity) {
  AR::Test::LogCapture capture;
  SmallVector<double, 4> v;
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(v.push_back(i));
  EXPECT_TRUE(v.full());
  EXPECT_FALSE(v.push_back(4.0));
  EXPECT_EQ(v.size(), 4u);
  EXPECT_EQ(v[3], 3.0);
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{
                "AR ERROR: push_back: current_size=4, MAX_SIZE=4. 8b, AR::Common::SmallVector is full\n"});
  SmallVector<std::string, 2> strings;
  strings.push_back("a heap-allocated string, long enough to leave the inline buffer");
  SmallVector<std::string, 2> copy(strings);
  EXPECT_EQ(copy[0], strings[0]);
}

TEST(Path, JoinsAndSplits) {
  EXPECT_EQ((Path("a/b/") / Path("c.txt")).str(), "a/b/c.txt");
  EXPECT_EQ((Path("a/b") / Path("c")).str(), "a/b/c");
  EXPECT_EQ((Path("a") / Path("/abs")).str(), "/abs");
  EXPECT_EQ((Path() / Path("c")).str(), "c");
  EXPECT_EQ(Path("a/b/c.txt").filename(), "c.txt");
  EXPECT_EQ(Path("/c.txt").parent().str(), "/");
  EXPECT_EQ(Path("c.txt").parent().str(), "");
  EXPECT_EQ(Path("a/b.tar.gz").extension(), ".gz");
  EXPECT_EQ(Path("a.d/.profile").extension(), "");
  EXPECT_EQ(Path(static_cast<const char*>(nullptr)).length(), 0u);
}

}  // namespace
}  // namespace Common
}  // namespace AR
