#include "AR/Common/Logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/LogFilter.h"
#include "AR/Common/Path.h"
#include "LogCapture.h"
#include "LogFormatters.h"
#include "PL/PLHooks.h"

namespace AR {
namespace Common {
namespace {

using Test::LogCapture;
using Lines = std::vector<std::string>;
// What reaches the platform log, "priority tag text|" per write, seen through
// the hook (which runs under the logger's lock).
std::string gPlatformLog;
int recordPlatformLog(int priority, const char* tag, const char* text) {
  gPlatformLog += std::to_string(priority) + " " + tag + " " + text + "|";
  return 1;
}

bool fixedTime(ArLocalTime* out) {
  *out = ArLocalTime{2024, 3, 5, 7, 8, 9};
  return true;
}

void setOnlyFlags(unsigned int flags) {
  Logger::getInstance().setFlag(~0u, false);
  Logger::getInstance().setFlag(flags, true);
}

/// The default configuration, without a file or filter entries.
void resetLogger() {
  Logger& logger = Logger::getInstance();
  logger.setFile(Path(), true, false);
  logger.setLevel(Logger::LEVEL_DEBUG);
  setOnlyFlags(Logger::FLAG_CONSOLE | Logger::FLAG_LEVEL);
  logger.getLogFilter().clear();
}

/// Replaces "(123)" by "(N)": line numbers are not part of what is pinned down.
std::string withoutLines(const std::string& text) {
  return std::regex_replace(text, std::regex("\\(\\d+\\)"), "(N)");
}

/// Routes the platform log and the clock through the hooks; `path` is the log file.
class LoggerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    resetLogger();
    arLogSetWriteHook(&recordPlatformLog);
    arTimeSetLocalTimeHook(&fixedTime);
    gPlatformLog.clear();
  }
  void TearDown() override {
    resetLogger();
    arLogSetWriteHook(nullptr);
    arTimeSetLocalTimeHook(nullptr);
    std::remove(path.c_str());
  }
  static std::string readFile(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// A full-form message from a fixed place, at ERROR unless told otherwise.
  void log(const char* text, Logger::LEVEL level = Logger::LEVEL_ERROR) {
    logger.logEx2(level, "F", "void f()", 1, "%s", text);
  }

  Logger& logger = Logger::getInstance();
  const std::string path = ::testing::TempDir() + "ar_logger_" + std::to_string(getpid()) + ".log";
};

// Must run before anything reconfigures the instance.
TEST(LoggerDefaults, FreshInstanceHasLevelDebugAndFlags34) {
  Logger& logger = Logger::getInstance();
  EXPECT_TRUE(logger.getLevel() == Logger::LEVEL_DEBUG && logger.getLogFilter().Level == 3);
  EXPECT_TRUE(logger.getFlag(Logger::FLAG_CONSOLE) && logger.getFlag(Logger::FLAG_LEVEL));
  EXPECT_FALSE(logger.getFlag(~34u));
}

// A WARNING from "bool VIO::createMaps(int, float)" in "VIO/src/StereoRectifyWrapper",
// line 42, text "value 7", at 2024-03-05 07:08:09, in each formatter's layout.
const char* const kLayouts[16] = {
    "value 7",
    "value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "VIO::createMaps(): value 7\n",
    "VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "2024-03-05 07:08:09: value 7\n",
    "2024-03-05 07:08:09: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "2024-03-05 07:08:09: VIO::createMaps(): value 7\n",
    "2024-03-05 07:08:09: VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "AR WARNING: value 7\n",
    "AR WARNING: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "AR WARNING: VIO::createMaps(): value 7\n",
    "AR WARNING: VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "AR WARNING: 2024-03-05 07:08:09: value 7\n",
    "AR WARNING: 2024-03-05 07:08:09: value 7\nVIO/src/StereoRectifyWrapper(42)\n",
    "AR WARNING: 2024-03-05 07:08:09: VIO::createMaps(): value 7\n",
    ("AR WARNING: 2024-03-05 07:08:09: VIO::createMaps() [42]: value 7\n"
     "VIO/src/StereoRectifyWrapper(42)\n"),
};

TEST_F(LoggerTest, FlagsChooseTheLayoutOfFullAndShortForms) {
  for (unsigned int index = 0; index < 16; ++index) {
    SCOPED_TRACE(index);
    setOnlyFlags(Logger::FLAG_CONSOLE | ((index & LOG_FORMAT_LEVEL) ? Logger::FLAG_LEVEL : 0u) |
                 ((index & LOG_FORMAT_TIME) ? Logger::FLAG_TIMEDATE : 0u) |
                 ((index & LOG_FORMAT_FUNCTION) ? Logger::FLAG_FUNCTION : 0u) |
                 ((index & LOG_FORMAT_FILENAME) ? Logger::FLAG_FILENAME : 0u));
    LogCapture capture;
    const char* const method = "bool VIO::createMaps(int, float)";
    logger.logEx2(Logger::LEVEL_WARNING, "VIO/src/StereoRectifyWrapper", method, 42, "value %d", 7);
    logger.log2(Logger::LEVEL_WARNING, "VIO/src/StereoRectifyWrapper", method, 42, "value 7");
    // The short forms keep only the level and time parts.
    const std::string shortLine = kLayouts[index & (LOG_FORMAT_LEVEL | LOG_FORMAT_TIME)];
    logger.logEx2(2, "value %d", 7);
    logger.log2(Logger::LEVEL_WARNING, "value 7");
    EXPECT_EQ(capture.messages(), (Lines{kLayouts[index], kLayouts[index], shortLine, shortLine}));
  }
}

// Calls formatter `index` without a method or file: it reports and returns 0.
void formatWithout(unsigned int index, const char* file, const char* method) {
  char buffer[64];
  EXPECT_EQ(kLogFormatFunctions[index](buffer, 64, Logger::LEVEL_ERROR, file, 1, method, 3, "t"),
            0);
}

TEST_F(LoggerTest, ReportsAndOwnMessagesReadByteForByte) {
  LogCapture capture;
  logError("y", "F", ("void AR::CV::" + std::string(120, 'f') + "()").c_str(), 2);
  logOnelineString(std::string(901, 'L'), Logger::LEVEL_ERROR);
  logOnelineString("hi", 7);
  logger.logEx2(-1, "odd");
  LogFormatFunction table[16] = {}, full = nullptr, shortForm = nullptr;
  table[8] = getFormatStringLevel;
  chooseLogFormatFunctions(Logger::FLAG_TIMEDATE, table, full, shortForm);
  formatWithout(2, "f", nullptr);
  formatWithout(11, nullptr, "m");
  logger.setLevel(Logger::LEVEL_VERBOSE);
  logOnelineString("v", Logger::LEVEL_VERBOSE);
  logOnelineString("i", Logger::LEVEL_INFO);
  logger.setFlag(Logger::FLAG_FUNCTION, true);
  logError("z", "F", "void g()", 3);
  // Reported under the logger's lock, emitted once it is released.
  setOnlyFlags(Logger::FLAG_LEVEL | Logger::FLAG_FILENAME);
  logger.logEx2(Logger::LEVEL_ERROR, nullptr, "void f()", 7, "lost");
  logger.setLevel(Logger::LEVEL_OFF);
  logError("z", "F", "void g()", 3);  // nothing below the error level
  logOnelineString("quiet", Logger::LEVEL_ERROR);

  // The start of each message, line numbers as "(N)"; one ending in "\n" is all of it.
  const std::string oneline =
      " Common/src/Logger(N) void AR::Common::logOnelineString(const std::string&, int)\n";
  const std::string setFlag =
      " Common/src/Logger(N) void AR::Common::Logger::setFlag(unsigned int, bool)\n";
  const Lines expected = {
      "AR ERROR: AR_ASSERT y F(N) void AR::CV::" + std::string(87, 'f') + "\n",
      "AR ERROR: AR_ASSERT string.length() <= MAX_LOG_LINE_LEN" + oneline,
      "AR ERROR: " + std::string(901, 'L') + "\n",
      "AR ERROR: Unsupported log level 7 message hi\n",
      "AR ERROR: AR_ASSERT 0" + oneline,
      "AR : odd\n",
      "AR ERROR: AR_ASSERT nlevel >= 0 && nlevel <= 5 Common/src/Logger(N) const char* "
      "AR::Common::getLogLevelString(Logger::LEVEL)\n",
      "AR ERROR: AR_ASSERT pimpl->formatFunction != nullptr" + setFlag,
      "AR ERROR: AR_ASSERT pimpl->shortFormatFunction != nullptr" + setFlag,
      "AR ERROR: AR_ASSERT func != nullptr Common/src/Logger(N) int "
      "AR::Common::getFormatStringFunction(",
      "AR ERROR: AR_ASSERT func != nullptr && file != nullptr Common/src/Logger(N) int "
      "AR::Common::getFormatStringLevelFunctionFilename(",
      "AR VERBOSE: v\n",
      "AR INFO: i\n",
      "AR ERROR: AR::Common::logError(): AR_ASSERT z F(N) void g()\n",
      "",
      "AR ERROR: AR_ASSERT file != nullptr Common/src/Logger(N) int "
      "AR::Common::getFormatStringLevelFilename(",
  };
  ASSERT_EQ(capture.messages().size(), expected.size())
      << ::testing::PrintToString(capture.messages());
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::string message = withoutLines(capture.messages()[i]);
    EXPECT_EQ(message.substr(0, expected[i].size()), expected[i]) << message;
  }
}

TEST_F(LoggerTest, PercentInFileMethodOrFinishedTextPrintsLiterally) {
  logger.setFlag(Logger::FLAG_FUNCTION | Logger::FLAG_FILENAME, true);
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_ERROR, "dir%s/file%n", "void ns::op%n%d(int)", 3, "v=%d", 5);
  logger.log2(Logger::LEVEL_ERROR, "dir%s", "void op%s()", 4, "100% done");
  logger.log2(Logger::LEVEL_ERROR, "50% %s");
  EXPECT_EQ(capture.messages(),
            (Lines{"AR ERROR: ns::op%n%d() [3]: v=5\ndir%s/file%n(3)\n",
                   "AR ERROR: op%s() [4]: 100% done\ndir%s(4)\n", "AR ERROR: 50% %s\n"}));
}

TEST_F(LoggerTest, MultilineStringSplitsAt900CharactersAndNewlines) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += static_cast<char>('a' + i % 26);
  auto split = [](const std::string& t) {
    LogCapture capture;
    logMultilineString(t, Logger::LEVEL_DEBUG);
    return capture.messages();
  };
  auto debug = [](const std::string& t) { return "AR DEBUG: " + t + "\n"; };
  EXPECT_EQ(split(text), (Lines{debug(text.substr(0, 900)), debug(text.substr(900))}));
  // A newline beyond the first 900 characters: position 900 is skipped.
  std::string withNewline = text;
  withNewline[950] = '\n';
  EXPECT_EQ(split(withNewline), (Lines{debug(text.substr(0, 900)), debug(text.substr(901, 49)),
                                       debug(text.substr(951))}));
  EXPECT_EQ(split("one\n\nthree"), (Lines{debug("one"), debug(""), debug("three")}));
  EXPECT_EQ(split(""), Lines{debug("")});
}

TEST_F(LoggerTest, FilterNarrowsWhatTheGlobalLevelAdmits) {
  LogFilter& filter = logger.getLogFilter();
  filter.setFilterLevel("VIO::createMaps", Logger::LEVEL_ERROR, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("VIO::verbose", Logger::LEVEL_VERBOSE, LogFilter::LOG_FILTER_SET_ALWAYS);
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "a");  // no FLAG_FILTER
  logger.setFlag(Logger::FLAG_FILTER, true);
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "b");
  logger.logEx2(Logger::LEVEL_ERROR, "F", "void VIO::createMaps()", 1, "c");
  logger.log2(Logger::LEVEL_WARNING, "F", "void Other::run()", 1, "d");
  // The global level (3) is tested first: the filter cannot widen it.
  logger.logEx2(Logger::LEVEL_VERBOSE, "F", "void VIO::verbose()", 1, "e");
  EXPECT_EQ(capture.messages(), (Lines{"AR WARNING: a\n", "AR ERROR: c\n", "AR WARNING: d\n"}));
  EXPECT_FALSE(logger.checkAndCreateFormatString(Logger::LEVEL_WARNING, "F", nullptr, 1, "d"));
  logger.setLevel(Logger::LEVEL_VERBOSE);  // moves the filter's root along
  EXPECT_EQ(filter.getLevel("Any::thing", -1), 5);

  // A long method name is filtered and printed by its last 80 characters: an
  // entry for the full name's first part does not apply, one for those does.
  const std::string name = "Outer::" + std::string(40, 'a') + "::" + std::string(40, 'b');
  const std::string last80 = name.substr(name.size() - 80), method = "void " + name + "(int)";
  logger.setFlag(Logger::FLAG_FUNCTION, true);
  filter.setFilterLevel("Outer", 0, LogFilter::LOG_FILTER_SET_ALWAYS);
  logger.logEx2(Logger::LEVEL_ERROR, "F", method.c_str(), 1, "x");
  filter.setFilterLevel(last80.c_str(), 0, LogFilter::LOG_FILTER_SET_ALWAYS);
  logger.logEx2(Logger::LEVEL_ERROR, "F", method.c_str(), 1, "x");
  EXPECT_EQ(capture.messages().size(), 4u);
  EXPECT_EQ(capture.messages().back(), "AR ERROR: " + last80 + "(): x\n");
}

TEST_F(LoggerTest, FileReplacesThePlatformLogOpensLazilyAndAppends) {
  logger.setFile(path, true, false);
  EXPECT_NE(access(path.c_str(), F_OK), 0) << "opened before the first message";
  LogCapture capture;
  log("one");
  logger.closeFile();
  logger.setFile(path, true, false);  // append keeps the content
  log("two", Logger::LEVEL_WARNING);
  EXPECT_EQ(readFile(path), "AR ERROR: one\nAR WARNING: two\n");
  EXPECT_TRUE(gPlatformLog.empty());
  EXPECT_EQ(capture.messages().size(), 2u);  // targets still see everything
  logger.setFile(path, false, false);        // without append: truncated
  EXPECT_EQ(readFile(path), "");
  // Close-after-write: after removing the file the next message makes a new one.
  logger.setFile(path, true, true);
  log("four");
  std::remove(path.c_str());
  log("five");
  EXPECT_EQ(readFile(path), "AR ERROR: five\n");
  // A file that cannot be opened falls back to the platform log (with FLAG_CONSOLE).
  logger.setFile(Path("/nonexistent-dir-ar/x.log"), true, false);
  EXPECT_FALSE(logger.openLogFile());
  log("six");
  logger.setFlag(Logger::FLAG_CONSOLE, false);
  log("not seen");
  EXPECT_EQ(gPlatformLog, "6 AR : six\n|");
}

TEST_F(LoggerTest, ConfigurationFromXml) {
  std::ofstream(path) << "earlier\n";
  logger.getLogFilter().setFilterLevel("Keep::me", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  const std::string xml =
      "<Brim><Logging logfile=\"" + path +
      "\" defaultLevel=\"Verbose\" timedate=\"TRUE\" function=\"true\" filename=\"false\" "
      "console=\"False\" filter=\"true\"><LogLevel name=\"VIO::createMaps\" level=\"error\"/>"
      "<LogLevel name=\"VIO::createMaps\" level=\"verbose\"/><LogLevel name=\"Skipped::x\"/>"
      "<LogLevel name=\"Keep::me\" level=\"verbose\"/><Other name=\"Other::y\" level=\"off\"/>"
      "</Logging></Brim>";
  ConfigNode config;
  ASSERT_TRUE(config.loadFromString(xml.c_str()));
  logger.initializeLogSettingsFromConfiguration(config);
  EXPECT_EQ(logger.getLevel(), Logger::LEVEL_VERBOSE);
  EXPECT_FALSE(logger.getFlag(Logger::FLAG_FILENAME | Logger::FLAG_CONSOLE));
  const LogFilter& filter = logger.getLogFilter();
  EXPECT_EQ(filter.getLevel("VIO::anything", -1), 1);  // created on the way; the first entry wins
  EXPECT_EQ(filter.getLevel("Keep::me", -1), 1);       // existing entries are kept
  EXPECT_EQ(filter.getLevel("Skipped::x", -1) + filter.getLevel("Other::y", -1), 10);
  // Time and function on, filename off, to the file and not the platform log.
  logger.logEx2(Logger::LEVEL_INFO, "F", "void Main::run()", 1, "to the file");
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "filtered out");
  EXPECT_EQ(readFile(path), "earlier\nAR INFO: 2024-03-05 07:08:09: Main::run(): to the file\n");
  EXPECT_TRUE(gPlatformLog.empty());
}

TEST_F(LoggerTest, EightThreadsLoseAndTearNoLines) {
  constexpr int kThreads = 8, kMessages = 400;
  const std::string padding(100, '.');
  std::set<std::string> expected;
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kMessages; ++i)
      expected.insert("AR ERROR: thread " + std::to_string(t) + " message " + std::to_string(i) +
                      " " + padding + " end\n");
  logger.setFile(path, false, false);
  LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < kMessages; ++i)
        Logger::getInstance().logEx2(Logger::LEVEL_ERROR, "F", "void worker()", 1,
                                     "thread %d message %d %s end", t, i, padding.c_str());
    });
  for (std::thread& th : threads) th.join();
  logger.closeFile();
  Lines fileLines;
  std::istringstream content(readFile(path));
  for (std::string line; std::getline(content, line);) fileLines.push_back(line + "\n");
  for (const Lines& lines : {capture.messages(), fileLines}) {
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
  }
}

// Reconfiguring adds filter entries while other threads look names up in the
// same tree: the tree's storage grows under them unless both sides hold the
// mutex (a use after free under AddressSanitizer, a race under TSan).
TEST_F(LoggerTest, ReconfiguringWhileThreadsLogLosesNothing) {
  constexpr int kThreads = 4, kMessages = 1500, kConfigurations = 150, kNamesPerConfiguration = 16;
  setOnlyFlags(Logger::FLAG_LEVEL | Logger::FLAG_FILTER);
  // Worker is filtered to errors: its VERBOSE messages are looked up and
  // dropped, which keeps the readers in the tree most of the time.
  logger.setLevel(Logger::LEVEL_VERBOSE);
  logger.getLogFilter().setFilterLevel("Worker", Logger::LEVEL_ERROR, LogFilter::LOG_FILTER_SET_ALWAYS);
  LogCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < kMessages; ++i) {
        Logger::getInstance().logEx2(Logger::LEVEL_ERROR, "F", "void Worker::Loop::run()", 1, "message %d", i);
        for (int j = 0; j < 10; ++j)
          Logger::getInstance().logEx2(Logger::LEVEL_VERBOSE, "F", "void Worker::Loop::run()", 1, "dropped");
      }
    });
  threads.emplace_back([] {
    for (int c = 0; c < kConfigurations; ++c) {
      std::string xml = "<Brim><Logging defaultLevel=\"verbose\">";
      for (int n = 0; n < kNamesPerConfiguration; ++n)
        xml += "<LogLevel name=\"Added" + std::to_string(c * kNamesPerConfiguration + n) +
               "::Deeper::f\" level=\"verbose\"/>";
      xml += "</Logging></Brim>";
      ConfigNode config;
      ASSERT_TRUE(config.loadFromString(xml.c_str()));
      Logger::getInstance().initializeLogSettingsFromConfiguration(config);
    }
  });
  for (std::thread& th : threads) th.join();
  // Every ERROR passes, no VERBOSE message does.
  EXPECT_EQ(capture.messages().size(), size_t(kThreads) * kMessages);
  EXPECT_EQ(capture.countContaining("dropped"), 0u);
  const LogFilter& filter = logger.getLogFilter();
  for (int k = 0; k < kConfigurations * kNamesPerConfiguration; k += 37)
    EXPECT_EQ(filter.getLevel(("Added" + std::to_string(k) + "::Deeper::f").c_str(), -1), Logger::LEVEL_VERBOSE);
  EXPECT_EQ(filter.getLevel("Worker::Loop::run", -1), Logger::LEVEL_ERROR);
}

}  // namespace
}  // namespace Common
}  // namespace AR
