#include "AR/Common/ConfigNode.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "LogCapture.h"

namespace AR {
namespace Common {
namespace {

// Lookup, booleans and LogLevel iteration from a string are also exercised
// by the logger's configuration test.
TEST(ConfigNode, LoadsFilesReadsAttributesAndChildrenAndKeepsTheDocumentAlive) {
  const std::string path = ::testing::TempDir() + "ar_config_" + std::to_string(getpid()) + ".xml";
  std::ofstream(path) << "<Brim v=\"2\"><Logging odd=\"yes\" on=\"tRuE\"/><Note>hi</Note></Brim>";
  ConfigNode config;
  ASSERT_TRUE(config.loadFromFile(path));
  std::remove(path.c_str());
  const ConfigNode logging = config.getNode("Brim.Logging");
  EXPECT_FALSE(config.getNode("Logging").isValid());  // the root element comes first
  EXPECT_TRUE(logging.getBool("on") && !logging.getBool("odd", true) && logging.getBool("x", true));
  EXPECT_EQ(logging.getString("missing", "fallback"), "fallback");
  std::string names;
  for (const ConfigNode& child : config.getNode("Brim").getChildren())
    names += child.getName() + " ";
  EXPECT_EQ(names, "Logging Note ");
  config = ConfigNode();
  EXPECT_EQ(logging.getString("odd"), "yes");
}

TEST(ConfigNode, MalformedOrMissingXmlIsAClearError) {
  AR::Test::LogCapture capture;
  ConfigNode config;
  ASSERT_TRUE(config.loadFromString("<Brim/>"));
  EXPECT_FALSE(config.loadFromString("<Brim><Logging></Brim>"));
  EXPECT_FALSE(config.isValid());  // the previous document is gone
  EXPECT_FALSE(config.getError().empty());
  EXPECT_FALSE(config.loadFromFile("/nonexistent-dir-ar/c.xml"));
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(
      capture.messages()[0].rfind("AR ERROR: Unable to load configuration from a string: ", 0), 0u);
  EXPECT_EQ(capture.messages()[1].rfind(
                "AR ERROR: Unable to load configuration from /nonexistent-dir-ar/c.xml: ", 0),
            0u);
}

}  // namespace
}  // namespace Common
}  // namespace AR
