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

// Dotted lookup, booleans and LogLevel iteration from a string are also
// exercised by the logger's configuration test.
TEST(ConfigNode, LoadsFilesKeepsTheDocumentAliveAndReportsMalformedXml) {
  const std::string path = ::testing::TempDir() + "ar_config_" + std::to_string(getpid()) + ".xml";
  std::ofstream(path) << "<Brim><Logging odd=\"yes\" on=\"tRuE\"/><Note>hi</Note></Brim>";
  ConfigNode config;
  ASSERT_TRUE(config.loadFromFile(path));
  std::remove(path.c_str());
  const ConfigNode logging = config.getNode("Brim.Logging");
  EXPECT_FALSE(config.getNode("Logging").isValid());  // the root element comes first
  EXPECT_TRUE(logging.getBool("on") && !logging.getBool("odd", true) && logging.getBool("x", true));
  std::string names;
  for (const ConfigNode& child : config.getNode("Brim").getChildren()) names += child.getName();
  EXPECT_EQ(names, "LoggingNote");

  AR::Test::LogCapture capture;
  EXPECT_FALSE(config.loadFromString("<Brim><Logging></Brim>"));
  EXPECT_FALSE(config.isValid());              // the previous document is gone
  EXPECT_EQ(logging.getString("odd"), "yes");  // but nodes keep theirs alive
  EXPECT_FALSE(config.loadFromFile(path));
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(
      capture.messages()[0].rfind("AR ERROR: Unable to load configuration from a string: ", 0), 0u);
  EXPECT_EQ(capture.messages()[1].rfind("AR ERROR: Unable to load configuration from " + path, 0),
            0u);
}

}  // namespace
}  // namespace Common
}  // namespace AR
