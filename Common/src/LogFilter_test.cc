#include "AR/Common/LogFilter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/Logger.h"
#include "LogCapture.h"
#include "LogFilterInternal.h"

namespace AR {
namespace Common {
namespace {

using Test::LogCapture;
using SET = LogFilter::LOG_FILTER_SET;

std::string str(const StringPortion& p) { return std::string(p.text, p.length); }

/// The tree as text: "name(level)[children]" for every child of `node`.
std::string dump(const LogFilterNode& node) {
  std::string out;
  for (const auto& child : node.Children) {
    out += str(child.first) + "(" + std::to_string(child.second.Level) + ")";
    if (!child.second.Children.empty()) out += "[" + dump(child.second) + "]";
    out += " ";
  }
  if (!out.empty()) out.pop_back();
  return out;
}

TEST(StringPortion, OrdersBytesUnsignedAndPrefixesFirst) {
  const StringPortion ab("ab", 2), abc("abc", 3), abd("abd", 3), b("b", 1), high("\xff", 1);
  EXPECT_TRUE(ab < abc);
  EXPECT_FALSE(abc < ab);
  EXPECT_TRUE(abc < abd);
  EXPECT_TRUE(abd < b);
  EXPECT_TRUE(b < high);  // 0xff sorts after ASCII, not before
  EXPECT_FALSE(ab < ab);
  EXPECT_TRUE(StringPortion("abX", 2) == ab);
  EXPECT_TRUE(StringPortion("", 0) == StringPortion(nullptr, 0));
  EXPECT_TRUE(StringPortion("", 0) < ab);
}

/// The portions of `name`, joined by "|".
std::string split(const char* name, size_t maxPortions, int maxLength) {
  StringPortion parts[16];
  const size_t n = LogFilter::splitUpMethodName(name, parts, maxPortions, maxLength);
  std::string out;
  for (size_t i = 0; i < n; ++i) out += (i ? "|" : "") + str(parts[i]);
  return out;
}

TEST(LogFilterSplit, SplitsAtDoubleColonsUpToTheLimits) {
  EXPECT_EQ(split("AR::CV::Camera<float>::init", 16, -1), "AR|CV|Camera<float>|init");
  EXPECT_EQ(split("a:b::c", 16, -1), "a:b|c");  // a single colon is not a separator
  EXPECT_EQ(split(nullptr, 16, -1), "");
  EXPECT_EQ(split("AR::CV::Camera", 16, 5), "AR|C");
  EXPECT_EQ(split("AR::CV", 16, 3), "AR:");  // the length limit cuts a separator in half
  // The 15th separator ends the name; so does the caller's maximum minus one.
  std::string deep = "p0";
  for (int i = 1; i < 17; ++i) deep += "::p" + std::to_string(i);
  EXPECT_EQ(split(deep.c_str(), 16, -1), "p0|p1|p2|p3|p4|p5|p6|p7|p8|p9|p10|p11|p12|p13|p14");
  EXPECT_EQ(split("a::b::c::d", 3, -1), "a|b");
  EXPECT_EQ(split("a::b", 3, -1), "a|b");
}

TEST(LogFilterTree, IfNewOnAnEmptyTreeCreatesThePath) {
  LogFilter filter;
  EXPECT_EQ(filter.Level, 3);
  EXPECT_EQ(LogFilterNode().Level, 2);
  filter.setFilterLevel("A::B", 5, LogFilter::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(dump(filter), "A(5)[B(5)]");
  EXPECT_EQ(filter.getLevel("A::C", -1), 5);
  EXPECT_EQ(filter.getLevel("A::B::deeper", -1), 5);
  EXPECT_EQ(filter.getLevel("X", -1), 3);
  EXPECT_EQ(filter.getLevel(nullptr, -1), 3);
  EXPECT_TRUE(filter.allowed("A::C", 5));
  EXPECT_FALSE(filter.allowed("X", 4));
  EXPECT_TRUE(filter.allowed("A::B", 4, 5));  // only "A::B" read
  // Without a name the root is set, whatever the mode.
  filter.setFilterLevel(nullptr, 1, LogFilter::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(filter.Level, 1);
}

TEST(LogFilterTree, LookupUsesTheDeepestNodeAndTheLengthLimit) {
  LogFilter filter(2);
  filter.setFilterLevel("A", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("A::B", 4, LogFilter::LOG_FILTER_SET_IF_NEW);
  filter.setFilterLevel("A::B::C", 5, LogFilter::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(filter.getLevel("A", -1), 1);
  EXPECT_EQ(filter.getLevel("A::B", -1), 4);
  EXPECT_EQ(filter.getLevel("A::B::C::D", -1), 5);
  EXPECT_EQ(filter.getLevel("A::X::C", -1), 1);  // stops at the first missing part
  EXPECT_EQ(filter.getLevel("A::B::C", 4), 4);   // "A::B" only
  EXPECT_EQ(filter.getLevel("A::B::C", 1), 1);   // "A"
  EXPECT_EQ(filter.getLevel("B", -1), 2);
}

struct ModeCase {
  SET mode;
  int existing;
  int requested;
  int expected;
};

class LogFilterModeTest : public ::testing::TestWithParam<ModeCase> {};

TEST_P(LogFilterModeTest, AppliesTheModeToTheFinalAndIntermediateNodes) {
  const ModeCase& c = GetParam();
  LogFilter filter;
  filter.setFilterLevel("A::B", c.existing, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("A::B", c.requested, c.mode);
  EXPECT_EQ(filter.getLevel("A::B", -1), c.expected);
  // An existing node passed on the way follows the mode as well.
  EXPECT_EQ(filter.getLevel("A", -1), c.expected);
  // The root only changes without a name.
  EXPECT_EQ(filter.Level, 3);
}

INSTANTIATE_TEST_SUITE_P(Modes, LogFilterModeTest,
                         ::testing::Values(ModeCase{LogFilter::LOG_FILTER_SET_IF_HIGHER, 2, 4, 4},
                                           ModeCase{LogFilter::LOG_FILTER_SET_IF_HIGHER, 4, 2, 4},
                                           ModeCase{LogFilter::LOG_FILTER_SET_IF_LOWER, 2, 4, 2},
                                           ModeCase{LogFilter::LOG_FILTER_SET_IF_LOWER, 4, 2, 2},
                                           ModeCase{LogFilter::LOG_FILTER_SET_ALWAYS, 2, 4, 4},
                                           ModeCase{LogFilter::LOG_FILTER_SET_IF_NEW, 4, 2, 4}));

TEST(LogFilterTree, ChildrenStaySortedAndKeysSurviveGrowth) {
  LogFilter filter;
  // Far more children than one growth step, with short names that a string
  // would keep inline: every key must still point at valid text afterwards.
  for (int i = 99; i >= 0; --i) {
    const std::string name = "n" + std::to_string(i * 7 % 100);  // destroyed after the call
    filter.setFilterLevel(name.c_str(), 5, LogFilter::LOG_FILTER_SET_ALWAYS);
  }
  ASSERT_EQ(filter.Children.size(), 100u);
  for (size_t i = 1; i < filter.Children.size(); ++i)
    EXPECT_TRUE(filter.Children[i - 1].first < filter.Children[i].first);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(filter.getLevel(("n" + std::to_string(i)).c_str(), -1), 5) << i;
}

TEST(LogFilterTree, RemovalDropsTheDeepestNodeAndChildlessAncestors) {
  LogFilter filter;
  // Only A exists: removing A::B::C removes A.
  filter.setFilterLevel("A", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.removeFilterLevel("A::B::C");
  EXPECT_EQ(dump(filter), "");

  filter.setFilterLevel("A::B::C", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("A::D", 4, LogFilter::LOG_FILTER_SET_IF_NEW);
  filter.setFilterLevel("E", 5, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.removeFilterLevel("A::B::C");  // B is left childless and goes; A keeps D
  EXPECT_EQ(dump(filter), "A(1)[D(4)] E(5)");
  filter.removeFilterLevel("A");     // A still has a child: nothing happens
  filter.removeFilterLevel("X::Y");  // nothing of the path exists
  filter.removeFilterLevel(nullptr);
  EXPECT_EQ(dump(filter), "A(1)[D(4)] E(5)");
  filter.removeFilterLevel("A::D");
  EXPECT_EQ(dump(filter), "E(5)");
}

TEST(LogFilterTree, DetachingANodeFromTheWrongParentIsReported) {
  LogFilter filter;
  filter.setFilterLevel("A::B", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  LogFilterNode stranger(4);
  LogCapture capture;
  EXPECT_FALSE(detachChildNode(filter, stranger));
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].rfind(
                "AR ERROR: AR_ASSERT parentNode->Children.find_data(*node) != "
                "parentNode->Children.end() Common/src/LogFilter(",
                0),
            0u)
      << capture.messages()[0];
  EXPECT_EQ(dump(filter), "A(1)[B(1)]");
  EXPECT_TRUE(detachChildNode(filter.Children[0].second, filter.Children[0].second.Children[0].second));
  EXPECT_EQ(dump(filter), "A(1)");
}

TEST(LogFilterLevels, WordsMatchIgnoringCaseAndUnknownWordsWarnAndAreOff) {
  const char* const words[6] = {"off", "ERROR", "wArNiNg", "Debug", "info", "verbose"};
  LogCapture capture;
  for (int level = 0; level < 6; ++level) EXPECT_EQ(LogFilter::getLogLevelFromString(words[level]), level);
  EXPECT_EQ(LogFilter::getLogLevelFromString("Verbose"), 5);
  EXPECT_EQ(LogFilter::getLogLevelFromString("VERBOSE"), 5);
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_EQ(LogFilter::getLogLevelFromString("loud"), 0);
  EXPECT_EQ(LogFilter::getLogLevelFromString("verbose "), 0);
  EXPECT_EQ(capture.messages(),
            (std::vector<std::string>{"AR WARNING: Unable to parse logging level: 'loud'\n",
                                      "AR WARNING: Unable to parse logging level: 'verbose '\n"}));
}

TEST(LogFilterConfiguration, ReadsDefaultLevelAndLogLevelEntries) {
  ConfigNode config;
  ASSERT_TRUE(config.loadFromString(
      "<Brim><Logging defaultLevel=\"error\">"
      "<LogLevel name=\"VIO::createMaps\" level=\"verbose\"/>"
      "<LogLevel name=\"VIO::createMaps\" level=\"off\"/>"  // IF_NEW: the first wins
      "<LogLevel level=\"off\"/>"
      "<LogLevel name=\"CV\"/>"
      "</Logging></Brim>"));
  LogFilter filter;
  filter.initializeFromConfiguration(config);
  EXPECT_EQ(filter.Level, 1);
  EXPECT_EQ(dump(filter), "VIO(5)[createMaps(5)]");

  LogFilter untouched;
  ConfigNode other;
  ASSERT_TRUE(other.loadFromString("<Brim><Log defaultLevel=\"off\"/></Brim>"));
  untouched.initializeFromConfiguration(other);
  EXPECT_EQ(untouched.Level, 3);
}

}  // namespace
}  // namespace Common
}  // namespace AR
