#include "AR/Common/Logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <new>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/LogFilter.h"
#include "AR/Common/Path.h"
#include "AR/PL/PLLog.h"
#include "LogCapture.h"
#include "LogFormatters.h"
#include "PL/PLHooks.h"

// Counts the heap allocations of the calling thread, to show that logging
// itself allocates nothing.
namespace {
thread_local long tlsAllocations = 0;
}

void* operator new(size_t size) {
  ++tlsAllocations;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  ++tlsAllocations;
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace AR {
namespace Common {
namespace {

using Test::LogCapture;
using Lines = std::vector<std::string>;

// What reaches the platform log (priority, tag, text), seen through the
// platform layer's hook.
using PlatformEntry = std::tuple<int, std::string, std::string>;
using PlatformLog = std::vector<PlatformEntry>;

std::mutex gPlatformMutex;
PlatformLog gPlatformLog;

int recordPlatformLog(int priority, const char* tag, const char* text) {
  std::lock_guard<std::mutex> lock(gPlatformMutex);
  gPlatformLog.emplace_back(priority, tag, text);
  return 1;
}

bool fixedTime(ArLocalTime* out) {
  *out = ArLocalTime{2024, 3, 5, 7, 8, 9};
  return true;
}

constexpr unsigned int kAllFlags = Logger::FLAG_TIMEDATE | Logger::FLAG_CONSOLE |
                                   Logger::FLAG_FUNCTION | Logger::FLAG_FILENAME |
                                   Logger::FLAG_FILTER | Logger::FLAG_LEVEL;

/// Puts the logger into its default configuration and routes the platform
/// log and the clock through the test hooks; restores the default after.
class LoggerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    resetLogger();
    arLogSetWriteHook(&recordPlatformLog);
    arTimeSetLocalTimeHook(&fixedTime);
    std::lock_guard<std::mutex> lock(gPlatformMutex);
    gPlatformLog.clear();
  }
  void TearDown() override {
    resetLogger();
    arLogSetWriteHook(nullptr);
    arTimeSetLocalTimeHook(nullptr);
    for (const std::string& path : files_) std::remove(path.c_str());
  }

  static void resetLogger() {
    Logger& logger = Logger::getInstance();
    logger.setFile(Path(), true, false);
    logger.setLevel(Logger::LEVEL_DEBUG);
    setOnlyFlags(Logger::FLAG_CONSOLE | Logger::FLAG_LEVEL);
    logger.getLogFilter().clear();
  }
  static void setOnlyFlags(unsigned int flags) {
    Logger::getInstance().setFlag(kAllFlags, false);
    Logger::getInstance().setFlag(flags, true);
  }

  /// A fresh path in the temporary directory, removed after the test.
  std::string tempPath(const std::string& name) {
    std::string path = ::testing::TempDir() + "ar_logger_" + std::to_string(getpid()) + "_" + name;
    std::remove(path.c_str());
    files_.push_back(path);
    return path;
  }

  static std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
  }

  static PlatformLog platformLog() {
    std::lock_guard<std::mutex> lock(gPlatformMutex);
    return gPlatformLog;
  }

  /// Replaces "(123)" by "(N)": the logger's own line numbers are not part of
  /// what the tests pin down.
  static std::string withoutLines(const std::string& text) {
    return std::regex_replace(text, std::regex("\\(\\d+\\)"), "(N)");
  }

  /// A full-form message from a fixed place, at ERROR unless told otherwise.
  void log(const char* text, Logger::LEVEL level = Logger::LEVEL_ERROR) {
    logger.logEx2(level, "F", "void f()", 1, "%s", text);
  }

  Logger& logger = Logger::getInstance();

 private:
  std::vector<std::string> files_;
};

// ---------------------------------------------------------------------------
// Defaults (must run before anything reconfigures the instance).

TEST(LoggerDefaults, FreshInstanceHasLevelDebugAndFlags34) {
  Logger& logger = Logger::getInstance();
  EXPECT_EQ(logger.getLevel(), Logger::LEVEL_DEBUG);
  unsigned int flags = 0;
  for (unsigned int bit = 1; bit <= 32; bit <<= 1)
    if (logger.getFlag(bit)) flags |= bit;
  EXPECT_EQ(flags, 34u);
  EXPECT_EQ(logger.getLogFilter().Level, 3);
}

TEST_F(LoggerTest, ErrorReachesPlatformLogAndInfoIsBelowTheDefaultLevel) {
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_INFO, "VIO/src/StereoRectify", "void f()", 1, "hidden");
  logger.logEx2(Logger::LEVEL_ERROR, "VIO/src/StereoRectify", "void f()", 1, "shown %d", 1);
  EXPECT_EQ(capture.messages(), Lines{"AR ERROR: shown 1\n"});
  EXPECT_EQ(platformLog(), (PlatformLog{{6, "AR", ": shown 1\n"}}));
  // Every level reaches the platform log with its own priority.
  logger.setLevel(Logger::LEVEL_VERBOSE);
  for (int level = 2; level <= 5; ++level) log("m", static_cast<Logger::LEVEL>(level));
  EXPECT_EQ(platformLog(), (PlatformLog{{6, "AR", ": shown 1\n"},
                                        {5, "AR", ": m\n"},
                                        {3, "AR", ": m\n"},
                                        {4, "AR", ": m\n"},
                                        {2, "AR", ": m\n"}}));
}

// ---------------------------------------------------------------------------
// The sixteen line layouts.

struct LayoutCase {
  unsigned int index;
  const char* line;
};

// WARNING message from method "bool VIO::createMaps(int, float)", file
// "VIO/src/StereoRectifyWrapper", line 42, text "value 7", at 2024-03-05 07:08:09.
const LayoutCase kLayouts[16] = {
    {0, "value 7"},
    {1, "value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {2, "VIO::createMaps(): value 7\n"},
    {3, "VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {4, "2024-03-05 07:08:09: value 7\n"},
    {5, "2024-03-05 07:08:09: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {6, "2024-03-05 07:08:09: VIO::createMaps(): value 7\n"},
    {7, "2024-03-05 07:08:09: VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {8, "AR WARNING: value 7\n"},
    {9, "AR WARNING: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {10, "AR WARNING: VIO::createMaps(): value 7\n"},
    {11, "AR WARNING: VIO::createMaps() [42]: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {12, "AR WARNING: 2024-03-05 07:08:09: value 7\n"},
    {13, "AR WARNING: 2024-03-05 07:08:09: value 7\nVIO/src/StereoRectifyWrapper(42)\n"},
    {14, "AR WARNING: 2024-03-05 07:08:09: VIO::createMaps(): value 7\n"},
    {15,
     "AR WARNING: 2024-03-05 07:08:09: VIO::createMaps() [42]: value 7\n"
     "VIO/src/StereoRectifyWrapper(42)\n"},
};

class LoggerLayoutTest : public LoggerTest, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(LoggerLayoutTest, FlagsChooseTheLayoutOfFullAndShortForms) {
  const LayoutCase& c = GetParam();
  setOnlyFlags(Logger::FLAG_CONSOLE | ((c.index & LOG_FORMAT_LEVEL) ? Logger::FLAG_LEVEL : 0u) |
               ((c.index & LOG_FORMAT_TIME) ? Logger::FLAG_TIMEDATE : 0u) |
               ((c.index & LOG_FORMAT_FUNCTION) ? Logger::FLAG_FUNCTION : 0u) |
               ((c.index & LOG_FORMAT_FILENAME) ? Logger::FLAG_FILENAME : 0u));
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_WARNING, "VIO/src/StereoRectifyWrapper",
                "bool VIO::createMaps(int, float)", 42, "value %d", 7);
  logger.log2(Logger::LEVEL_WARNING, "VIO/src/StereoRectifyWrapper",
              "bool VIO::createMaps(int, float)", 42, "value 7");
  // The short forms keep only the level and time parts.
  const std::string shortLine = kLayouts[c.index & (LOG_FORMAT_LEVEL | LOG_FORMAT_TIME)].line;
  logger.logEx2(2, "value %d", 7);
  logger.log2(Logger::LEVEL_WARNING, "value 7");
  EXPECT_EQ(capture.messages(), (Lines{c.line, c.line, shortLine, shortLine}));
  // The platform log gets the text from its first colon (none: empty).
  const std::string line = c.line;
  const size_t colon = line.find(':');
  const PlatformLog log = platformLog();
  ASSERT_EQ(log.size(), 4u);
  EXPECT_EQ(log[0], (PlatformEntry{5, "AR", colon == std::string::npos ? "" : line.substr(colon)}));
}

INSTANTIATE_TEST_SUITE_P(AllSixteen, LoggerLayoutTest, ::testing::ValuesIn(kLayouts),
                         [](const ::testing::TestParamInfo<LayoutCase>& info) {
                           return "Index" + std::to_string(info.param.index);
                         });

TEST_F(LoggerTest, FormattersReportAMissingMethodOrFile) {
  const char* const both = "func != nullptr && file != nullptr";
  const struct {
    unsigned int index;
    const char* file;
    const char* method;
    const char* condition;
  } cases[] = {{1, nullptr, "m", "file != nullptr"},  {2, "f", nullptr, "func != nullptr"},
               {3, nullptr, "m", both},               {3, "f", nullptr, both},
               {5, nullptr, "m", "file != nullptr"},  {6, "f", nullptr, "func != nullptr"},
               {7, "f", nullptr, both},               {9, nullptr, "m", "file != nullptr"},
               {10, "f", nullptr, "func != nullptr"}, {11, nullptr, nullptr, both},
               {13, nullptr, "m", "file != nullptr"}, {14, "f", nullptr, "func != nullptr"},
               {15, "f", nullptr, both}};
  for (const auto& c : cases) {
    LogCapture capture;
    char buffer[64] = "garbage";
    EXPECT_EQ(kLogFormatFunctions[c.index](buffer, sizeof(buffer), Logger::LEVEL_ERROR, c.file, 1,
                                           c.method, 3, "text"),
              0);
    EXPECT_STREQ(buffer, "") << c.index;
    ASSERT_EQ(capture.messages().size(), 1u) << c.index;
    EXPECT_EQ(capture.messages()[0].rfind(
                  std::string("AR ERROR: AR_ASSERT ") + c.condition + " Common/src/Logger(", 0),
              0u)
        << capture.messages()[0];
  }
}

TEST_F(LoggerTest, NullFileInTheFilenameLayoutGivesAnEmptyMessageThenTheReport) {
  logger.setFlag(Logger::FLAG_FILENAME, true);
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_ERROR, nullptr, "void f()", 7, "lost");
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(capture.messages()[0], "");
  EXPECT_EQ(withoutLines(capture.messages()[1]),
            "AR ERROR: AR_ASSERT file != nullptr Common/src/Logger(N) int "
            "AR::Common::getFormatStringLevelFilename(char*, size_t, Logger::LEVEL, const char*, "
            "int, const c\nCommon/src/Logger(N)\n");
}

TEST_F(LoggerTest, OutOfRangeLevelIsReportedAndRejectedByThePlatformLog) {
  LogCapture capture;
  logger.logEx2(-1, "odd");
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(capture.messages()[0], "AR : odd\n");
  EXPECT_EQ(withoutLines(capture.messages()[1]),
            "AR ERROR: AR_ASSERT nlevel >= 0 && nlevel <= 5 Common/src/Logger(N) const char* "
            "AR::Common::getLogLevelString(Logger::LEVEL)\n");
  const PlatformLog log = platformLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], (PlatformEntry{6, "AR", "Erroneous log level -1"}));
  EXPECT_EQ(std::get<0>(log[1]), 6);
}

TEST_F(LoggerTest, MissingFormatterInTheTableIsReported) {
  LogFormatFunction table[16] = {};
  table[8] = getFormatStringLevel;
  LogFormatFunction full = nullptr;
  LogFormatFunction shortForm = nullptr;
  LogCapture capture;
  chooseLogFormatFunctions(Logger::FLAG_LEVEL | Logger::FLAG_FUNCTION, table, full, shortForm);
  EXPECT_EQ(full, nullptr);
  EXPECT_EQ(shortForm, getFormatStringLevel);
  chooseLogFormatFunctions(Logger::FLAG_TIMEDATE, table, full, shortForm);
  std::string tail = " Common/src/Logger(N) void AR::Common::Logger::setFlag(unsigned int, bool)\n";
  const std::string fullReport = "AR ERROR: AR_ASSERT pimpl->formatFunction != nullptr" + tail;
  const std::string shortReport = "AR ERROR: AR_ASSERT pimpl->shortFormatFunction != nullptr" + tail;
  Lines reports;
  for (const std::string& m : capture.messages()) reports.push_back(withoutLines(m));
  EXPECT_EQ(reports, (Lines{fullReport, fullReport, shortReport}));
}

// ---------------------------------------------------------------------------
// Method names, escaping and truncation.

TEST(LoggerParseMethodName, TakesTheLastWordBeforeTheParameters) {
  auto parse = [](const char* name, int limit) {
    const StringPortion p = Logger::parseMethodName(name, limit);
    return std::string(p.text, p.length);
  };
  EXPECT_EQ(parse("void AR::Common::Logger::setFlag(unsigned int, bool)", 80),
            "AR::Common::Logger::setFlag");
  EXPECT_EQ(parse("static AR::Common::Logger& AR::Common::Logger::getInstance()", 80),
            "AR::Common::Logger::getInstance");
  EXPECT_EQ(parse("void A::abcdef()", 4), "cdef");
  EXPECT_EQ(parse("void A::abcdef()", -1), "A::abcdef");
  EXPECT_EQ(Logger::parseMethodName(nullptr, 80).length, 0u);
}

TEST_F(LoggerTest, LongMethodNamesAreFilteredAndPrintedByTheirLast80Characters) {
  const std::string name = "Outer::" + std::string(40, 'a') + "::" + std::string(40, 'b');
  const std::string last80 = name.substr(name.size() - 80);
  const std::string method = "void " + name + "(int)";
  logger.setFlag(Logger::FLAG_FUNCTION | Logger::FLAG_FILTER, true);
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_ERROR, "F", method.c_str(), 1, "x");
  EXPECT_EQ(capture.messages(), Lines{"AR ERROR: " + last80 + "(): x\n"});

  // The filter sees the same 80 characters: an entry for the full name's
  // first part does not apply, one for the shortened name does.
  logger.getLogFilter().setFilterLevel("Outer", 0, LogFilter::LOG_FILTER_SET_ALWAYS);
  logger.logEx2(Logger::LEVEL_ERROR, "F", method.c_str(), 1, "x");
  EXPECT_EQ(capture.messages().size(), 2u);
  logger.getLogFilter().setFilterLevel(last80.c_str(), 0, LogFilter::LOG_FILTER_SET_ALWAYS);
  logger.logEx2(Logger::LEVEL_ERROR, "F", method.c_str(), 1, "x");
  EXPECT_EQ(capture.messages().size(), 2u);
}

TEST_F(LoggerTest, PercentInFileMethodOrFinishedTextPrintsLiterally) {
  logger.setFlag(Logger::FLAG_FUNCTION | Logger::FLAG_FILENAME, true);
  LogCapture capture;
  logger.logEx2(Logger::LEVEL_ERROR, "dir%s/file%n", "void ns::op%n%d(int)", 3, "v=%d", 5);
  logger.log2(Logger::LEVEL_ERROR, "dir%s", "void op%s()", 4, "100% done");
  setOnlyFlags(Logger::FLAG_LEVEL);
  logger.log2(Logger::LEVEL_ERROR, "50% %s");
  EXPECT_EQ(capture.messages(), (Lines{"AR ERROR: ns::op%n%d() [3]: v=5\ndir%s/file%n(3)\n",
                                       "AR ERROR: op%s() [4]: 100% done\ndir%s(4)\n",
                                       "AR ERROR: 50% %s\n"}));
}

TEST_F(LoggerTest, OverLongMessagesAreCutToTheBuffer) {
  LogCapture capture;
  log(std::string(3000, 'x').c_str());
  // A caller format longer than the format buffer is cut without leaving
  // half a conversion behind.
  const std::string format = std::string(1011, 'y') + "%d";
  logger.logEx2(Logger::LEVEL_ERROR, "F", "void f()", 1, format.c_str(), 5);  // NOLINT
  EXPECT_EQ(capture.messages(),
            (Lines{"AR ERROR: " + std::string(2046 - 10, 'x'), "AR ERROR: " + std::string(1011, 'y')}));
}

// ---------------------------------------------------------------------------
// Contract checks and string helpers.

TEST_F(LoggerTest, LogErrorWritesTheAssertAndCapacityLinesAndReturns) {
  LogCapture capture;
  const std::string longFunction = "void AR::CV::" + std::string(120, 'f') + "()";
  logError("x > 0", "CV/src/Camera/Camera", "bool AR::CV::Camera<PREC>::init()", 17);
  logError("y", "F", longFunction.c_str(), 2);
  logger.setFlag(Logger::FLAG_FUNCTION, true);
  logError("z", "F", "void g()", 3);
  logError(size_t(16), size_t(16), "AR::Common::SmallVector is full", size_t(8));
  logger.setLevel(Logger::LEVEL_OFF);
  logError("z", "F", "void g()", 3);
  EXPECT_EQ(capture.messages(),
            (Lines{"AR ERROR: AR_ASSERT x > 0 CV/src/Camera/Camera(17) bool "
                   "AR::CV::Camera<PREC>::init()\n",
                   "AR ERROR: AR_ASSERT y F(2) " + longFunction.substr(0, 100) + "\n",
                   "AR ERROR: AR::Common::logError(): AR_ASSERT z F(3) void g()\n",
                   "AR ERROR: AR::Common::logError(): push_back: current_size=16, MAX_SIZE=16. 8b, "
                   "AR::Common::SmallVector is full\n"}));
}

TEST_F(LoggerTest, OnelineStringChecksLengthAndLevel) {
  LogCapture capture;
  const std::string long901(901, 'L');
  logOnelineString("hello", Logger::LEVEL_WARNING);
  logOnelineString("quiet", Logger::LEVEL_INFO);
  logOnelineString(long901, Logger::LEVEL_ERROR);
  logOnelineString("hi", 7);
  const std::string where = " Common/src/Logger(N) void AR::Common::logOnelineString(const std::string&, int)\n";
  Lines lines;
  for (const std::string& m : capture.messages()) lines.push_back(withoutLines(m));
  EXPECT_EQ(lines, (Lines{"AR WARNING: hello\n",
                          "AR ERROR: AR_ASSERT string.length() <= MAX_LOG_LINE_LEN" + where,
                          "AR ERROR: " + long901 + "\n",
                          "AR ERROR: Unsupported log level 7 message hi\n",
                          "AR ERROR: AR_ASSERT 0" + where}));
}

TEST_F(LoggerTest, MultilineStringSplitsAt900CharactersAndNewlines) {
  std::string text(1000, ' ');
  for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
  auto split = [](const std::string& t) {
    LogCapture capture;
    logMultilineString(t, Logger::LEVEL_DEBUG);
    Lines lines;
    for (const std::string& m : capture.messages()) {
      EXPECT_EQ(m.rfind("AR DEBUG: ", 0), 0u);
      EXPECT_EQ(m.back(), '\n');
      lines.push_back(m.substr(10, m.size() - 11));
    }
    return lines;
  };
  EXPECT_EQ(split(text), (Lines{text.substr(0, 900), text.substr(900)}));
  // A newline beyond the first 900 characters: the character after the cut
  // (position 900) is skipped.
  std::string withNewline = text;
  withNewline[950] = '\n';
  EXPECT_EQ(split(withNewline), (Lines{text.substr(0, 900), text.substr(901, 49), text.substr(951)}));
  EXPECT_EQ(split("one\ntwo\n\nthree"), (Lines{"one", "two", "", "three"}));
  EXPECT_EQ(split(""), Lines{""});
  EXPECT_EQ(split(text.substr(0, 900) + "\nx"), (Lines{text.substr(0, 900), "x"}));
}

// ---------------------------------------------------------------------------
// Filtering, flags and targets.

TEST_F(LoggerTest, FilterNarrowsWhatTheGlobalLevelAdmits) {
  LogFilter& filter = logger.getLogFilter();
  // Nodes created on the way get the level too, so the namespace is set first.
  filter.setFilterLevel("VIO", Logger::LEVEL_DEBUG, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("VIO::createMaps", Logger::LEVEL_ERROR, LogFilter::LOG_FILTER_SET_ALWAYS);
  filter.setFilterLevel("VIO::verbose", Logger::LEVEL_VERBOSE, LogFilter::LOG_FILTER_SET_ALWAYS);
  LogCapture capture;
  // Without FLAG_FILTER the tree is ignored.
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "a");
  logger.setFlag(Logger::FLAG_FILTER, true);
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "b");
  logger.logEx2(Logger::LEVEL_ERROR, "F", "void VIO::createMaps()", 1, "c");
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::other()", 1, "d");
  // The global level (3) is tested first: the filter cannot widen it.
  logger.logEx2(Logger::LEVEL_VERBOSE, "F", "void VIO::verbose()", 1, "e");
  EXPECT_EQ(capture.messages(), (Lines{"AR WARNING: a\n", "AR ERROR: c\n", "AR WARNING: d\n"}));
  EXPECT_FALSE(logger.checkAndCreateFormatString(Logger::LEVEL_WARNING, "F",
                                                 "void VIO::createMaps()", 1, "b"));
  EXPECT_TRUE(logger.checkAndCreateFormatString(Logger::LEVEL_WARNING, "F", "void VIO::other()", 1,
                                                "d"));
  EXPECT_FALSE(logger.checkAndCreateFormatString(Logger::LEVEL_WARNING, "F", nullptr, 1, "d"));
  // setLevel moves the filter's root along with the global level.
  logger.setLevel(Logger::LEVEL_VERBOSE);
  EXPECT_EQ(filter.getLevel("Any::thing", -1), 5);
}

TEST_F(LoggerTest, FlagsAreTestedAsAnyBitOfTheMask) {
  EXPECT_TRUE(logger.getFlag(Logger::FLAG_CONSOLE | Logger::FLAG_TIMEDATE));
  EXPECT_FALSE(logger.getFlag(Logger::FLAG_TIMEDATE | Logger::FLAG_FILTER));
  logger.setFlag(Logger::FLAG_TIMEDATE | Logger::FLAG_FILTER, true);
  EXPECT_TRUE(logger.getFlag(Logger::FLAG_FILTER));
  logger.setFlag(Logger::FLAG_TIMEDATE | Logger::FLAG_FILTER | Logger::FLAG_CONSOLE, false);
  EXPECT_FALSE(logger.getFlag(kAllFlags & ~Logger::FLAG_LEVEL));
}

class TaggedTarget : public LogTarget {
 public:
  TaggedTarget(Lines& sink, std::string tag) : sink_(sink), tag_(std::move(tag)) {}
  void output(const char* text) override { sink_.push_back(tag_ + text); }

 private:
  Lines& sink_;
  std::string tag_;
};

TEST_F(LoggerTest, TargetsRunInRegistrationOrderAndRemoveTheFirstMatch) {
  Lines sink;
  TaggedTarget a(sink, "a:"), b(sink, "b:");
  logger.addTarget(&a);
  logger.addTarget(&b);
  logger.addTarget(&a);
  log("1");
  EXPECT_TRUE(logger.removeTarget(&a));
  log("2");
  EXPECT_EQ(sink, (Lines{"a:AR ERROR: 1\n", "b:AR ERROR: 1\n", "a:AR ERROR: 1\n", "b:AR ERROR: 2\n",
                         "a:AR ERROR: 2\n"}));
  EXPECT_TRUE(logger.removeTarget(&a));
  EXPECT_TRUE(logger.removeTarget(&b));
  EXPECT_FALSE(logger.removeTarget(&b));
}

class LoggingTarget : public LogTarget {
 public:
  void output(const char*) override {
    ++calls;
    // Logging from a target is not allowed; it must neither deadlock nor
    // recurse, and reconfiguring must still work.
    Logger::getInstance().logEx2(Logger::LEVEL_ERROR, "F", "void t()", 1, "nested");
    Logger::getInstance().setLevel(Logger::LEVEL_WARNING);
  }
  int calls = 0;
};

TEST_F(LoggerTest, ATargetThatLogsDoesNotDeadlock) {
  LoggingTarget target;
  LogCapture capture;
  logger.addTarget(&target);
  log("outer");
  logger.removeTarget(&target);
  EXPECT_EQ(target.calls, 1);
  EXPECT_EQ(capture.messages(), Lines{"AR ERROR: outer\n"});
  EXPECT_EQ(logger.getLevel(), Logger::LEVEL_WARNING);
}

// ---------------------------------------------------------------------------
// File output.

TEST_F(LoggerTest, FileReplacesThePlatformLogAndIsAppended) {
  const std::string path = tempPath("file.log");
  logger.setFile(path, false, false);
  LogCapture capture;
  log("one");
  log("two", Logger::LEVEL_WARNING);
  EXPECT_EQ(readFile(path), "AR ERROR: one\nAR WARNING: two\n");
  EXPECT_TRUE(platformLog().empty());
  EXPECT_EQ(capture.messages().size(), 2u);  // targets still see everything

  // append keeps the content, a new setFile without append truncates it
  logger.setFile(path, true, false);
  log("three");
  EXPECT_EQ(readFile(path), "AR ERROR: one\nAR WARNING: two\nAR ERROR: three\n");
  logger.setFile(path, false, false);
  EXPECT_EQ(readFile(path), "");

  // Without a file, or with one that cannot be opened, the platform log is
  // used again (if FLAG_CONSOLE is set).
  logger.setFile(Path(), false, false);
  log("four");
  logger.setFile(Path("/nonexistent-dir-ar/x.log"), true, false);
  EXPECT_FALSE(logger.openLogFile());
  log("five");
  logger.setFlag(Logger::FLAG_CONSOLE, false);
  log("not seen");
  EXPECT_EQ(platformLog(), (PlatformLog{{6, "AR", ": four\n"}, {6, "AR", ": five\n"}}));
}

TEST_F(LoggerTest, FileControlOperations) {
  const std::string path = tempPath("control.log");
  EXPECT_FALSE(logger.openLogFile());  // no path
  logger.setFile(path, true, false);
  EXPECT_TRUE(logger.openLogFile());
  log("kept");
  logger.closeLogFile();  // not close-after-write: stays open
  std::remove(path.c_str());
  log("into the removed file");
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  logger.closeFile();
  log("reopened");
  logger.clearLogFile();  // a file is open: nothing happens
  EXPECT_EQ(readFile(path), "AR ERROR: reopened\n");
  logger.closeFile();
  logger.clearLogFile();
  EXPECT_EQ(readFile(path), "");

  // Opened lazily; with close-after-write the handle is closed after each
  // message, so after removing the file the next message creates a new one.
  std::remove(path.c_str());
  logger.setFile(path, true, true);
  EXPECT_NE(access(path.c_str(), F_OK), 0) << "opened before the first message";
  log("one");
  std::remove(path.c_str());
  log("two");
  EXPECT_EQ(readFile(path), "AR ERROR: two\n");
}

// ---------------------------------------------------------------------------
// Configuration.

TEST_F(LoggerTest, ConfigurationFromXml) {
  const std::string path = tempPath("configured.log");
  std::ofstream(path) << "earlier\n";
  logger.getLogFilter().setFilterLevel("Keep::me", 1, LogFilter::LOG_FILTER_SET_ALWAYS);
  const std::string xml =
      "<Brim><Logging defaultLevel=\"Verbose\" timedate=\"TRUE\" function=\"true\" "
      "filename=\"false\" console=\"False\" filter=\"true\" logfile=\"" +
      path +
      "\">"
      "<LogLevel name=\"VIO::createMaps\" level=\"error\"/>"
      "<LogLevel name=\"Keep::me\" level=\"verbose\"/>"
      "<LogLevel name=\"Skipped::x\"/>"
      "<Other name=\"Other::y\" level=\"off\"/>"
      "</Logging></Brim>";
  ConfigNode config;
  ASSERT_TRUE(config.loadFromString(xml.c_str()));
  logger.initializeLogSettingsFromConfiguration(config);

  EXPECT_EQ(logger.getLevel(), Logger::LEVEL_VERBOSE);
  for (unsigned int flag : {Logger::FLAG_TIMEDATE, Logger::FLAG_FUNCTION, Logger::FLAG_FILTER,
                            Logger::FLAG_LEVEL})
    EXPECT_TRUE(logger.getFlag(flag)) << flag;
  EXPECT_FALSE(logger.getFlag(Logger::FLAG_FILENAME | Logger::FLAG_CONSOLE));
  const LogFilter& filter = logger.getLogFilter();
  EXPECT_EQ(filter.Level, 5);
  EXPECT_EQ(filter.getLevel("VIO::anything", -1), 1);  // created on the way
  EXPECT_EQ(filter.getLevel("Keep::me", -1), 1);       // existing entries are kept
  EXPECT_EQ(filter.getLevel("Skipped::x", -1), 5);
  EXPECT_EQ(filter.getLevel("Other::y", -1), 5);

  logger.logEx2(Logger::LEVEL_INFO, "F", "void Main::run()", 1, "to the file");
  logger.logEx2(Logger::LEVEL_WARNING, "F", "void VIO::createMaps()", 1, "filtered out");
  EXPECT_EQ(readFile(path), "earlier\nAR INFO: 2024-03-05 07:08:09: Main::run(): to the file\n");
  EXPECT_TRUE(platformLog().empty());

  // Without a "Brim.Logging" node nothing changes.
  ASSERT_TRUE(config.loadFromString("<Brim><Other defaultLevel=\"off\" timedate=\"false\"/></Brim>"));
  logger.initializeLogSettingsFromConfiguration(config);
  EXPECT_EQ(logger.getLevel(), Logger::LEVEL_VERBOSE);
  EXPECT_TRUE(logger.getFlag(Logger::FLAG_TIMEDATE));
}

// ---------------------------------------------------------------------------
// No allocation on the logging path; no torn or lost lines across threads.

class FixedTarget : public LogTarget {
 public:
  void output(const char*) override { ++count; }
  int count = 0;
};

int countingHook(int, const char*, const char*) { return 1; }

TEST_F(LoggerTest, LoggingAllocatesNothing) {
  arLogSetWriteHook(&countingHook);
  FixedTarget target;
  logger.addTarget(&target);
  logger.setLevel(Logger::LEVEL_VERBOSE);
  logger.setFlag(kAllFlags, true);
  logger.getLogFilter().setFilterLevel("Quiet::method", 0, LogFilter::LOG_FILTER_SET_ALWAYS);
  const std::string lines = "first\nsecond\n" + std::string(1000, 'x');

  const long before = tlsAllocations;
  logger.logEx2(Logger::LEVEL_ERROR, "VIO/src/StereoRectify", "void VIO::run(int)", 1, "n=%d %s", 1,
                "text");
  logger.logEx2(Logger::LEVEL_ERROR, "VIO/src/StereoRectify", "void Quiet::method()", 1, "dropped");
  logger.log2(Logger::LEVEL_WARNING, "VIO/src/StereoRectify", "void VIO::run(int)", 2, "text");
  logger.logEx2(Logger::LEVEL_INFO, "short %d", 3);
  logger.log2(Logger::LEVEL_DEBUG, "short");
  logError("a == b", "VIO/src/StereoRectify", "void VIO::run(int)", 3);
  logError(size_t(1), size_t(1), "what", size_t(4));
  logMultilineString(lines, Logger::LEVEL_VERBOSE);
  logOnelineString(lines, 9);
  const long allocations = tlsAllocations - before;

  logger.removeTarget(&target);
  EXPECT_EQ(allocations, 0);
  // 4 full and short forms that pass + 2 reports + 4 split lines + the
  // over-long unsupported-level line with its 2 reports.
  EXPECT_EQ(target.count, 13);
}

TEST_F(LoggerTest, EightThreadsLoseAndTearNoLines) {
  constexpr int kThreads = 8;
  constexpr int kMessages = 400;
  const std::string path = tempPath("threads.log");
  LogCapture capture;
  const std::string padding(100, '.');
  auto runThreads = [&] {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        for (int i = 0; i < kMessages; ++i)
          Logger::getInstance().logEx2(Logger::LEVEL_ERROR, "F", "void worker()", 1,
                                       "thread %d message %d %s end", t, i, padding.c_str());
      });
    for (std::thread& th : threads) th.join();
  };
  auto expectAllLines = [&](const Lines& lines) {
    std::set<std::string> expected;
    for (int t = 0; t < kThreads; ++t)
      for (int i = 0; i < kMessages; ++i)
        expected.insert("AR ERROR: thread " + std::to_string(t) + " message " + std::to_string(i) +
                        " " + padding + " end\n");
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
  };

  runThreads();  // to the platform log and the targets
  expectAllLines(capture.messages());
  Lines platformLines;
  for (const PlatformEntry& e : platformLog()) platformLines.push_back("AR ERROR" + std::get<2>(e));
  expectAllLines(platformLines);

  logger.setFile(path, false, false);
  runThreads();
  logger.closeFile();
  Lines fileLines;
  std::istringstream content(readFile(path));
  for (std::string line; std::getline(content, line);) fileLines.push_back(line + "\n");
  expectAllLines(fileLines);
}

}  // namespace
}  // namespace Common
}  // namespace AR
