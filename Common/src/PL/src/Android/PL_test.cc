#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

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

}  // namespace
