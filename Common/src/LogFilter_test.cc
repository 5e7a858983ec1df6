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

TEST(LogFilterSplit, SplitsAtDoubleColons) {
  StringPortion parts[16];
  const size_t n = LogFilter::splitUpMethodName("AR::CV::Camera<float>::init", parts, 16, -1);
  ASSERT_EQ(n, 4u);
  EXPECT_EQ(str(parts[0]), "AR");
  EXPECT_EQ(str(parts[2]), "Camera<float>");
  EXPECT_EQ(str(parts[3]), "init");
  EXPECT_EQ(LogFilter::splitUpMethodName("main", parts, 16, -1), 1u);
  EXPECT_EQ(str(parts[0]), "main");
  // a single colon is not a separator
  EXPECT_EQ(LogFilter::splitUpMethodName("a:b::c", parts, 16, -1), 2u);
  EXPECT_EQ(str(parts[0]), "a:b");
  EXPECT_EQ(LogFilter::splitUpMethodName(nullptr, parts, 16, -1), 0u);
}

TEST(LogFilterSplit, StopsAtMaxLengthAndAtTheFifteenthSeparator) {
  StringPortion parts[16];
  ASSERT_EQ(LogFilter::splitUpMethodName("AR::CV::Camera", parts, 16, 5), 2u);
  EXPECT_EQ(str(parts[1]), "C");
  // The length limit also cuts a separator in half.
  ASSERT_EQ(LogFilter::splitUpMethodName("AR::CV", parts, 16, 3), 1u);
  EXPECT_EQ(str(parts[0]), "AR:");

  std::string deep;
  for (int i = 0; i < 17; ++i) deep += (i ? "::p" : "p") + std::to_string(i);
  ASSERT_EQ(LogFilter::splitUpMethodName(deep.c_str(), parts, 16, -1), 15u);
  EXPECT_EQ(str(parts[14]), "p14");
  // the caller's maximum: count reaching maxPortions - 1 at a separator ends it
  ASSERT_EQ(LogFilter::splitUpMethodName("a::b::c::d", parts, 3, -1), 2u);
  EXPECT_EQ(str(parts[1]), "b");
  ASSERT_EQ(LogFilter::splitUpMethodName("a::b", parts, 3, -1), 2u);
  EXPECT_EQ(str(parts[1]), "b");
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
}

TEST(LogFilterTree, NullNameSetsTheRootWhateverTheMode) {
  LogFilter filter;
  filter.setFilterLevel(nullptr, 1, LogFilter::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(filter.Level, 1);
  filter.setFilterLevel(nullptr, 4, LogFilter::LOG_FILTER_SET_IF_LOWER);
  EXPECT_EQ(filter.Level, 4);
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

  LogFilterNode node(c.existing);
  LogFilter::setFilterNodeLevel(&node, c.requested, c.mode);
  EXPECT_EQ(node.Level, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, LogFilterModeTest,
    ::testing::Values(ModeCase{LogFilter::LOG_FILTER_SET_IF_HIGHER, 2, 4, 4},
                      ModeCase{LogFilter::LOG_FILTER_SET_IF_HIGHER, 4, 2, 4},
                      ModeCase{LogFilter::LOG_FILTER_SET_IF_LOWER, 2, 4, 2},
                      ModeCase{LogFilter::LOG_FILTER_SET_IF_LOWER, 4, 2, 2},
                      ModeCase{LogFilter::LOG_FILTER_SET_ALWAYS, 4, 2, 2},
                      ModeCase{LogFilter::LOG_FILTER_SET_ALWAYS, 2, 4, 4},
                      ModeCase{LogFilter::LOG_FILTER_SET_IF_NEW, 2, 4, 2},
                      ModeCase{LogFilter::LOG_FILTER_SET_IF_NEW, 4, 2, 4}));

TEST(LogFilterTree, ChildrenStaySortedAndKeysSurviveGrowth) {
  LogFilter filter;
  // Far more children than one growth step, with short names that a string
  // would keep inline: every key must still point at valid text afterwards.
  std::vector<std::string> names;
  for (int i = 99; i >= 0; --i) names.push_back("n" + std::to_string(i * 7 % 100));
  for (size_t i = 0; i < names.size(); ++i)
    filter.setFilterLevel(names[i].c_str(), static_cast<int>(i % 6), LogFilter::LOG_FILTER_SET_ALWAYS);
  names.clear();  // the tree keeps its own copies
  ASSERT_EQ(filter.Children.size(), 100u);
  for (size_t i = 1; i < filter.Children.size(); ++i)
    EXPECT_TRUE(filter.Children[i - 1].first < filter.Children[i].first);
  for (int i = 0; i < 100; ++i) {
    const std::string name = "n" + std::to_string(i);
    EXPECT_NE(filter.Children.find(StringPortion(name.c_str(), name.size())), filter.Children.end())
        << name;
  }
  filter.setFilterLevel("n5::x", 5, LogFilter::LOG_FILTER_SET_IF_NEW);
  EXPECT_EQ(filter.getLevel("n5::x", -1), 5);
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
  filter.removeFilterLevel("A");  // A still has a child: nothing happens
  EXPECT_EQ(dump(filter), "A(1)[D(4)] E(5)");
  filter.removeFilterLevel("X::Y");  // nothing of the path exists
  filter.removeFilterLevel(nullptr);
  EXPECT_EQ(dump(filter), "A(1)[D(4)] E(5)");
  filter.removeFilterLevel("A::D");
  EXPECT_EQ(dump(filter), "E(5)");
  EXPECT_EQ(filter.getLevel("A::D", -1), 3);
  filter.clear();
  EXPECT_EQ(dump(filter), "");
  EXPECT_EQ(filter.Level, 3);
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

TEST(LogFilterLevels, WordsMatchIgnoringCase) {
  const char* const words[6][3] = {{"off", "OFF", "Off"},         {"error", "ERROR", "Error"},
                                   {"warning", "WARNING", "wArNiNg"}, {"debug", "DEBUG", "Debug"},
                                   {"info", "INFO", "Info"},      {"verbose", "VERBOSE", "Verbose"}};
  LogCapture capture;
  for (int level = 0; level < 6; ++level)
    for (const char* word : words[level]) EXPECT_EQ(LogFilter::getLogLevelFromString(word), level);
  EXPECT_TRUE(capture.messages().empty());
}

TEST(LogFilterLevels, UnknownWordIsAWarningAndOff) {
  LogCapture capture;
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
