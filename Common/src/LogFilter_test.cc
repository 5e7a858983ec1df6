#include "AR/Common/LogFilter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AR/Common/Logger.h"
#include "LogCapture.h"
#include "LogFilterInternal.h"

namespace AR {
namespace Common {
namespace {

using F = LogFilter;

std::string str(const StringPortion& p) { return std::string(p.text, p.length); }

/// The tree as text: "name(level)[children]" for every child of `node`.
std::string dump(const LogFilterNode& node) {
  std::string out;
  for (const auto& child : node.Children) {
    const std::string level = "(" + std::to_string(child.second.Level) + ")";
    out += (out.empty() ? "" : " ") + str(child.first) + level;
    if (!child.second.Children.empty()) out += "[" + dump(child.second) + "]";
  }
  return out;
}

TEST(LogFilter, CreationAndLookupDepth) {
  LogFilter filter;
  filter.setFilterLevel("A::B", 5, F::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(dump(filter), "A(5)[B(5)]");
  EXPECT_EQ(filter.getLevel("A::C", -1), 5);
  EXPECT_EQ(filter.getLevel("X", -1), 3);
  // The deepest node reached counts; a length limit stops the walk early.
  filter.setFilterLevel("A", 1, F::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("A::B::C", 4, F::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(filter.getLevel("A::B::C::D", -1), 4);
  EXPECT_EQ(filter.getLevel("A::X::C", -1), 1);  // stops at the first missing part
  EXPECT_TRUE(filter.allowed("A::B::C", 4, 5) && !filter.allowed("A::B::C", 5));
  filter.setFilterLevel(nullptr, 1, F::LOG_FILTER_SET_IF_NEW);  // no name: the root
  EXPECT_EQ(filter.Level, 1);
}

TEST(LogFilter, ModesApplyToTheFinalAndIntermediateNodes) {
  const struct {
    F::LOG_FILTER_SET mode;
    int existing, requested, expected;
  } cases[] = {{F::LOG_FILTER_SET_IF_HIGHER, 2, 4, 4}, {F::LOG_FILTER_SET_IF_HIGHER, 4, 2, 4},
               {F::LOG_FILTER_SET_IF_LOWER, 4, 2, 2},  {F::LOG_FILTER_SET_IF_LOWER, 2, 4, 2},
               {F::LOG_FILTER_SET_ALWAYS, 4, 2, 2},    {F::LOG_FILTER_SET_IF_NEW, 4, 2, 4}};
  for (const auto& c : cases) {
    LogFilter filter;
    filter.setFilterLevel("A::B", c.existing, F::LOG_FILTER_SET_ALWAYS);
    filter.setFilterLevel("A::B", c.requested, c.mode);
    const std::string level = std::to_string(c.expected);
    EXPECT_EQ(dump(filter), "A(" + level + ")[B(" + level + ")]") << "mode " << c.mode;
  }
}

TEST(LogFilter, ChildrenStaySortedAndKeysSurviveGrowth) {
  LogFilter filter;
  // Many children with short names that a string would keep inline: every
  // key must still point at valid text after the storage has grown.
  for (int i = 99; i >= 0; --i)
    filter.setFilterLevel(("n" + std::to_string(i * 7 % 100)).c_str(), 5, F::LOG_FILTER_SET_ALWAYS);
  ASSERT_EQ(filter.Children.size(), 100u);
  // Names compare bytewise as unsigned characters, a prefix first.
  const StringPortion ab("ab", 2), abc("abc", 3), b("b", 1), high("\xff", 1);
  EXPECT_TRUE(ab < abc && !(abc < ab) && abc < b && !(ab < ab) && b < high);
  for (size_t i = 1; i < filter.Children.size(); ++i)
    EXPECT_TRUE(filter.Children[i - 1].first < filter.Children[i].first);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(filter.getLevel(("n" + std::to_string(i)).c_str(), -1), 5);
}

TEST(LogFilter, RemovalDropsTheDeepestNodeAndChildlessAncestors) {
  LogFilter filter;
  filter.setFilterLevel("A", 1, F::LOG_FILTER_SET_ALWAYS);
  filter.removeFilterLevel("A::B::C");  // only A exists: A goes
  EXPECT_EQ(dump(filter), "");
  filter.setFilterLevel("A::B::C", 1, F::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("A::D", 4, F::LOG_FILTER_SET_IF_NEW);
  filter.removeFilterLevel("A::B::C");  // B is left childless and goes; A keeps D
  filter.removeFilterLevel("A");        // A still has a child: nothing happens
  EXPECT_EQ(dump(filter), "A(1)[D(4)]");
  // Detaching from a parent that does not hold the node is reported.
  AR::Test::LogCapture capture;
  LogFilterNode stranger(4);
  EXPECT_FALSE(detachChildNode(filter, stranger));
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(
      capture.messages()[0].rfind("AR ERROR: AR_ASSERT parentNode->Children.find_data(*node) != "
                                  "parentNode->Children.end() Common/src/LogFilter(",
                                  0),
      0u);
}

TEST(LogFilter, LevelWordsMatchIgnoringCaseAndUnknownWordsWarnAndAreOff) {
  AR::Test::LogCapture capture;
  const char* const words[6] = {"off", "ERROR", "wArNiNg", "Debug", "info", "verbose"};
  for (int level = 0; level < 6; ++level)
    EXPECT_EQ(LogFilter::getLogLevelFromString(words[level]), level);
  EXPECT_EQ(LogFilter::getLogLevelFromString("verbose "), 0);
  EXPECT_EQ(capture.messages(),
            std::vector<std::string>{"AR WARNING: Unable to parse logging level: 'verbose '\n"});
}

}  // namespace
}  // namespace Common
}  // namespace AR
