// Aligned memory and processor facts.
#include <gtest/gtest.h>

#include <cstdint>

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
}

TEST(CpuFacts, AgreeWithTheIdentificationQuery) {
  const CpuFeatures& features = CpuFeatures::instance();
  EXPECT_TRUE(features.x64 && features.SSE2);  // every x86-64 processor has them
  uint32_t leaf1[4], leaf7[4];
  CpuIdQuery(1, 0, leaf1);
  CpuIdQuery(7, 0, leaf7);
  EXPECT_EQ(features.AVX, ((leaf1[2] >> 28) & 1u) != 0);
  EXPECT_EQ(features.MMX, ((leaf1[3] >> 23) & 1u) != 0);
  EXPECT_EQ(features.AVX2, ((leaf7[1] >> 5) & 1u) != 0);
  EXPECT_EQ(features.AVX512VBMI, ((leaf7[2] >> 1) & 1u) != 0);
}

}  // namespace
}  // namespace quorl
