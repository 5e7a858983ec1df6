#include "AR/PL/PL.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "PL/PLHooks.h"

namespace {

std::string gWritten;  // "priority tag text|" per write

int record(int priority, const char* tag, const char* text) {
  gWritten += std::to_string(priority) + " " + tag + " " + text + "|";
  return 7;
}

TEST(PlatformLog, PrioritiesTagTextFromTheFirstColonAndRejectedLevels) {
  arLogSetWriteHook(&record);
  for (int level = 1; level <= 5; ++level) EXPECT_EQ(arLogMessage(level, "AR", "AR L: a: b"), 7);
  arLogMessage(1, "AR", "no colon here\n");
  EXPECT_EQ(arLogMessage(0, "AR", "AR : x\n"), 0);  // level 0 and no text: nothing written
  EXPECT_EQ(arLogMessage(1, "AR", nullptr), -1);
  EXPECT_EQ(arLogMessage(6, "AR", "AR X: text\n"), -1);
  EXPECT_EQ(arGetLastError(), 3);
  arLogSetWriteHook(nullptr);
  EXPECT_EQ(gWritten,
            "6 AR : a: b|5 AR : a: b|3 AR : a: b|4 AR : a: b|2 AR : a: b|6 AR |"
            "6 AR Erroneous log level 6|");
}

TEST(PlatformLog, TheConfiguredBackendIsBuiltAndAcceptsAMessage) {
  EXPECT_STREQ(arLogBackendName(), AR_TEST_LOG_BACKEND);
  EXPECT_GE(arLogBackendWrite(AR_LOG_PRIORITY_WARN, "AR", ": backend line\n"), 0);
}

TEST(PlatformFileAndMemory, FailuresSetThePlatformErrorAndAllocationsAreAligned) {
  EXPECT_EQ(arFileOpenForAppend("/nonexistent-dir-ar/file"), nullptr);
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_FAILED);
  for (size_t alignment : {1u, 64u, 4096u}) {
    void* p = arMallocAligned(1000, alignment);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignment, 0u);
    std::memset(p, 0xab, 1000);  // the whole block is usable
    arFreeAligned(p);
  }
  EXPECT_EQ(arMallocAligned(16, 24), nullptr);  // not a power of two
  EXPECT_EQ(arGetLastError(), AR_PL_ERROR_INVALID_ARGUMENT);
}

}  // namespace
