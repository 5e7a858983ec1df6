#include "AR/Common/ConfigNode.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "LogCapture.h"

namespace AR {
namespace Common {
namespace {

const char* const kXml =
    "<?xml version=\"1.0\"?>\n"
    "<Brim version=\"2\">\n"
    "  <Logging defaultLevel=\"debug\" timedate=\"TRUE\" console=\"false\" odd=\"yes\">\n"
    "    <LogLevel name=\"A\" level=\"info\"/>\n"
    "    <Note>hello</Note>\n"
    "    <LogLevel name=\"B\" level=\"off\"/>\n"
    "  </Logging>\n"
    "  <Numbers whole=\"-12\" real=\"2.5e-1\" bad=\"12x\" big=\"99999999999\"/>\n"
    "</Brim>\n";

class ConfigNodeTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(config.loadFromString(kXml)); }
  ConfigNode config;
};

TEST_F(ConfigNodeTest, DottedLookupFromTheDocument) {
  EXPECT_TRUE(config.isValid());
  EXPECT_EQ(config.getName(), "");
  const ConfigNode logging = config.getNode("Brim.Logging");
  ASSERT_TRUE(logging.isValid());
  EXPECT_EQ(logging.getName(), "Logging");
  EXPECT_EQ(config.getNode("Brim").getNode("Logging.Note").getText(), "hello");
  EXPECT_FALSE(config.getNode("Logging").isValid());  // the root element comes first
  EXPECT_FALSE(config.getNode("Brim.Missing").isValid());
  EXPECT_FALSE(config.getNode("Brim.").isValid());
  EXPECT_FALSE(config.getNode("Brim..Logging").isValid());
  EXPECT_FALSE(config.getNode(nullptr).isValid());
  EXPECT_EQ(logging.getNode("").getName(), "Logging");
}

TEST_F(ConfigNodeTest, AttributesStringsAndBooleans) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  EXPECT_TRUE(logging.hasAttribute("timedate"));
  EXPECT_FALSE(logging.hasAttribute("function"));
  EXPECT_FALSE(logging.hasAttribute(nullptr));
  EXPECT_EQ(logging.getString("defaultLevel"), "debug");
  EXPECT_EQ(logging.getString("missing", "fallback"), "fallback");
  EXPECT_TRUE(logging.getBool("timedate"));
  EXPECT_FALSE(logging.getBool("console", true));
  EXPECT_FALSE(logging.getBool("odd", true));  // only "true" in any case is true
  EXPECT_TRUE(logging.getBool("missing", true));
  EXPECT_FALSE(logging.getBool("missing"));
}

TEST_F(ConfigNodeTest, Numbers) {
  const ConfigNode numbers = config.getNode("Brim.Numbers");
  int whole = 0;
  double real = 0;
  EXPECT_TRUE(numbers.tryGetInt("whole", whole));
  EXPECT_EQ(whole, -12);
  EXPECT_TRUE(numbers.tryGetDouble("real", real));
  EXPECT_EQ(real, 0.25);
  int untouched = 7;
  EXPECT_FALSE(numbers.tryGetInt("bad", untouched));
  EXPECT_FALSE(numbers.tryGetInt("big", untouched));
  EXPECT_FALSE(numbers.tryGetInt("missing", untouched));
  EXPECT_EQ(untouched, 7);
}

TEST_F(ConfigNodeTest, ChildrenInDocumentOrder) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  std::vector<std::string> names;
  for (const ConfigNode& child : logging.getChildren()) names.push_back(child.getName());
  EXPECT_EQ(names, (std::vector<std::string>{"LogLevel", "Note", "LogLevel"}));
  std::vector<std::string> levels;
  for (ConfigNode c = logging.firstChild("LogLevel"); c.isValid(); c = c.nextSibling("LogLevel"))
    levels.push_back(c.getString("name") + "=" + c.getString("level"));
  EXPECT_EQ(levels, (std::vector<std::string>{"A=info", "B=off"}));
  EXPECT_EQ(config.firstChild().getName(), "Brim");
  EXPECT_FALSE(config.getNode("Brim.Logging.Note").firstChild().isValid());
}

TEST_F(ConfigNodeTest, NodesKeepTheDocumentAlive) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  config = ConfigNode();
  EXPECT_EQ(logging.getString("defaultLevel"), "debug");
}

TEST(ConfigNode, InvalidNodeReadsAsAbsent) {
  const ConfigNode none;
  EXPECT_FALSE(none.isValid() || none.hasAttribute("x") || none.getNode("a").isValid() ||
               none.firstChild().isValid() || none.nextSibling().isValid());
  EXPECT_EQ(none.getString("x", "d"), "d");
  EXPECT_TRUE(none.getBool("x", true));
  EXPECT_TRUE(none.getChildren().empty());
}

TEST_F(ConfigNodeTest, MalformedXmlIsAClearError) {
  AR::Test::LogCapture capture;
  EXPECT_FALSE(config.loadFromString("<Brim><Logging></Brim>"));
  EXPECT_FALSE(config.isValid());  // the previous document is gone
  EXPECT_FALSE(config.getError().empty());
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].rfind("AR ERROR: Unable to load configuration from a string: ", 0),
            0u)
      << capture.messages()[0];
  EXPECT_FALSE(config.loadFromString(""));
  EXPECT_FALSE(config.loadFromString(nullptr));
  EXPECT_FALSE(config.getNode("Brim.Logging").isValid());
}

TEST(ConfigNode, LoadsFiles) {
  const std::string path = ::testing::TempDir() + "ar_config_" + std::to_string(getpid()) + ".xml";
  {
    std::ofstream out(path);
    out << kXml;
  }
  ConfigNode config;
  EXPECT_TRUE(config.loadFromFile(path));
  EXPECT_TRUE(config.getError().empty());
  EXPECT_EQ(config.getNode("Brim").getString("version"), "2");
  std::remove(path.c_str());

  AR::Test::LogCapture capture;
  EXPECT_FALSE(config.loadFromFile(path));
  EXPECT_FALSE(config.getError().empty());
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].rfind("AR ERROR: Unable to load configuration from " + path + ": ",
                                        0),
            0u);
}

}  // namespace
}  // namespace Common
}  // namespace AR
