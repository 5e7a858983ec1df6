#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>
#include <unistd.h>

#include "AR/PL/PL.h"
#include "PL/PLHooks.h"

namespace {

using Written = std::tuple<int, std::string, std::string>;  // priority, tag, text
std::vector<Written> gWritten;

int record(int priority, const char* tag, const char* text) {
  gWritten.emplace_back(priority, tag, text);
  return 7;
}

class PlatformLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gWritten.clear();
    arLogSetWriteHook(&record);
  }
  void TearDown() override { arLogSetWriteHook(nullptr); }
};

TEST_F(PlatformLogTest, PrioritiesTagAndTextFromTheFirstColon) {
  const int priorities[6] = {0, 6, 5, 3, 4, 2};
  for (int level = 1; level <= 5; ++level) {
    EXPECT_EQ(arLogMessage(level, "AR", "AR LEVEL: a: b\n"), 7);
    EXPECT_EQ(arLogPriorityFromLevel(level), priorities[level]);
  }
  arLogMessage(1, "AR", "no colon here\n");
  EXPECT_EQ(gWritten, (std::vector<Written>{{6, "AR", ": a: b\n"},
                                            {5, "AR", ": a: b\n"},
                                            {3, "AR", ": a: b\n"},
                                            {4, "AR", ": a: b\n"},
                                            {2, "AR", ": a: b\n"},
                                            {6, "AR", ""}}));
}

TEST_F(PlatformLogTest, LevelZeroAndNullTextWriteNothing) {
  EXPECT_EQ(arLogMessage(0, "AR", "AR : x\n"), 0);
  EXPECT_EQ(arLogMessage(1, "AR", nullptr), -1);
  EXPECT_TRUE(gWritten.empty());
}

TEST_F(PlatformLogTest, OutOfRangeLevelsAreReportedAtErrorPriority) {
  for (int level : {6, -1}) {
    arSetLastError(AR_PL_ERROR_NONE);
    EXPECT_EQ(arLogMessage(level, "AR", "AR X: text\n"), -1);
    EXPECT_EQ(arGetLastError(), 3);
  }
  EXPECT_EQ(gWritten, (std::vector<Written>{{6, "AR", "Erroneous log level 6"},
                                            {6, "AR", "Erroneous log level -1"}}));
  EXPECT_EQ(arLogPriorityFromLevel(6), 0);
}

TEST(PlatformLogBackend, TheConfiguredBackendIsBuiltAndWrites) {
  EXPECT_STREQ(arLogBackendName(), AR_TEST_LOG_BACKEND);
  if (std::strcmp(arLogBackendName(), "host") == 0) {
    // The host backend writes logcat-style lines to standard error.
    testing::internal::CaptureStderr();
    EXPECT_GT(arLogBackendWrite(AR_LOG_PRIORITY_ERROR, "AR", ": host line\n"), 0);
    EXPECT_GT(arLogBackendWrite(AR_LOG_PRIORITY_VERBOSE, "AR", "plain"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E/AR: host line\nV/AR: plain\n");
  } else {
    // liblog accepts the message (it returns a negative errno on failure).
    EXPECT_GE(arLogBackendWrite(AR_LOG_PRIORITY_WARN, "AR", ": android line\n"), 0);
  }
  // Without a hook arLogMessage reaches the backend.
  EXPECT_EQ(arLogSetWriteHook(nullptr), nullptr);
  EXPECT_GE(arLogMessage(2, "AR", "AR WARNING: through the backend\n"), 0);
}

bool noon(ArLocalTime* out) {
  *out = ArLocalTime{2030, 12, 31, 12, 0, 0};
  return true;
}

TEST(PlatformTime, LocalTimeIsPlausibleAndHookable) {
  ArLocalTime t{};
  ASSERT_TRUE(arTimeGetLocalTime(&t));
  EXPECT_GE(t.year, 2020u);
  EXPECT_TRUE(t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= 31);
  EXPECT_TRUE(t.hour <= 23 && t.minute <= 59 && t.second <= 60);
  EXPECT_EQ(arTimeSetLocalTimeHook(&noon), nullptr);
  ASSERT_TRUE(arTimeGetLocalTime(&t));
  EXPECT_EQ(t.year, 2030u);
  EXPECT_EQ(t.hour, 12u);
  EXPECT_EQ(arTimeSetLocalTimeHook(nullptr), &noon);
  EXPECT_FALSE(arTimeGetLocalTime(nullptr));
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_INVALID_ARGUMENT);
}

std::string readAll(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(PlatformFile, WriteTruncatesAndAppendAppends) {
  const std::string path = ::testing::TempDir() + "ar_pl_" + std::to_string(getpid()) + ".txt";
  ArFile* f = arFileOpenForWrite(path.c_str());
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(arFileWrite(f, "one\n", 4), 4u);
  EXPECT_TRUE(arFileFlush(f));
  EXPECT_EQ(readAll(path), "one\n");  // visible after the flush
  EXPECT_TRUE(arFileClose(f));

  f = arFileOpenForAppend(path.c_str());
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(arFileWrite(f, "two\n", 4), 4u);
  EXPECT_EQ(arFileWrite(f, nullptr, 0), 0u);
  EXPECT_TRUE(arFileClose(f));
  EXPECT_EQ(readAll(path), "one\ntwo\n");

  f = arFileOpenForWrite(path.c_str());
  EXPECT_TRUE(arFileClose(f));
  EXPECT_EQ(readAll(path), "");
  std::remove(path.c_str());
}

TEST(PlatformFile, FailuresSetThePlatformError) {
  arSetLastError(AR_PL_ERROR_NONE);
  EXPECT_EQ(arFileOpenForAppend("/nonexistent-dir-ar/file"), nullptr);
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_FAILED);
  EXPECT_EQ(arFileOpenForWrite(nullptr), nullptr);
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(arFileWrite(nullptr, "x", 1), 0u);
  EXPECT_FALSE(arFileFlush(nullptr));
  EXPECT_TRUE(arFileClose(nullptr));
}

TEST(PlatformMemory, AlignedAllocation) {
  for (size_t alignment : {1u, 8u, 16u, 64u, 4096u}) {
    void* p = arMallocAligned(1000, alignment);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignment, 0u);
    std::memset(p, 0xab, 1000);  // the whole block is usable
    arFreeAligned(p);
  }
  EXPECT_EQ(arMallocAligned(0, 16), nullptr);
  arSetLastError(AR_PL_ERROR_NONE);
  EXPECT_EQ(arMallocAligned(16, 24), nullptr);
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_INVALID_ARGUMENT);
  arFreeAligned(nullptr);
}

TEST(PlatformMutex, ExcludesOtherThreads) {
  ArMutex* mutex = arMutexCreate();
  ASSERT_NE(mutex, nullptr);
  arMutexLock(mutex);
  bool acquired = true;
  std::thread other([&] { acquired = arMutexTryLock(mutex); });
  other.join();
  EXPECT_FALSE(acquired);
  arMutexUnlock(mutex);

  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        arMutexLock(mutex);
        ++counter;
        arMutexUnlock(mutex);
      }
    });
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(counter, 40000);
  EXPECT_TRUE(arMutexTryLock(mutex));
  arMutexUnlock(mutex);
  arMutexDestroy(mutex);
}

}  // namespace
