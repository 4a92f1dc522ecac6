// Aligned memory, processor facts and the clock.
#include <gtest/gtest.h>

#include <cstdint>

#include "runtime/clock.h"
#include "runtime/cpu.h"
#include "runtime/memory.h"

namespace quorl {
namespace {

TEST(AlignedMemory, GivesAlignedBlocksAndNullForBadAlignment) {
  void* block = AlignedAlloc(64, 100);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
  AlignedFree(block);
  EXPECT_EQ(AlignedAlloc(48, 100), nullptr);
  EXPECT_EQ(AlignedAlloc(3, 8), nullptr);
  AlignedFree(nullptr);
}

TEST(CpuFacts, AgreeWithTheIdentificationQuery) {
  EXPECT_GE(CpuCount(), 1);
  const CpuFeatures& features = CpuFeatures::instance();
  EXPECT_EQ(&features, &CpuFeatures::instance());
  // Every x86-64 processor has these.
  EXPECT_TRUE(features.x64);
  EXPECT_TRUE(features.SSE2);
  EXPECT_FALSE(features.reserved1 || features.reserved2 || features.reserved3);

  uint32_t leaf1[4];
  CpuIdQuery(1, 0, leaf1);
  EXPECT_EQ(features.SSE3, (leaf1[2] & 1u) != 0);
  EXPECT_EQ(features.AVX, ((leaf1[2] >> 28) & 1u) != 0);
  EXPECT_EQ(features.MMX, ((leaf1[3] >> 23) & 1u) != 0);
  uint32_t leaf7[4];
  CpuIdQuery(7, 0, leaf7);
  EXPECT_EQ(features.AVX2, ((leaf7[1] >> 5) & 1u) != 0);
  EXPECT_EQ(features.AVX512VBMI, ((leaf7[2] >> 1) & 1u) != 0);
}

TEST(Clock, SleepOfNothingReturnsAndTheClockAdvances) {
  const auto before = ClockNow();
  SleepNanoseconds(0);
  SleepNanoseconds(-5);
  SleepNanoseconds(2000000);
  EXPECT_GT(ClockNow(), before);
  EXPECT_EQ(RuntimePlaceholder1() + RuntimePlaceholder2() + RuntimePlaceholder3(), 0);
}

}  // namespace
}  // namespace quorl
