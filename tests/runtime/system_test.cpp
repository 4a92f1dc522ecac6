// Aligned memory, processor facts and the sleep request.
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "runtime/clock.h"
#include "runtime/cpu.h"
#include "runtime/memory.h"

namespace quorl {
namespace {

TEST(AlignedMemory, GivesAlignedBlocksAndNullForEveryFailure) {
  const std::size_t word = sizeof(void*);
  // {alignment, size, granted}: not a power of two, or a power of two below the pointer size, is refused.
  std::vector<std::array<std::size_t, 3>> requests = {
      {word, 1, 1}, {64, 100, 1}, {4096, 3, 1}, {0, 16, 0}, {48, 100, 0}, {word / 2, 16, 0}, {1, 16, 0}};
#if !defined(__SANITIZE_ADDRESS__)
  // The allocation itself fails (AddressSanitizer ends the process here instead, by its own rule).
  requests.push_back({64, std::numeric_limits<std::size_t>::max() - 4096, 0});
#endif
  for (const auto& request : requests) {
    void* block = AlignedAlloc(request[0], request[1]);
    EXPECT_EQ(block != nullptr, request[2] == 1) << request[0] << " " << request[1];
    if (block != nullptr) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % request[0], 0u);
    }
    AlignedFree(block);  // null too
  }
}

TEST(CpuFacts, AgreeWithTheIdentificationQuery) {
  const CpuFeatures& features = CpuFeatures::instance();
  EXPECT_EQ(&features, &CpuFeatures::instance());
  EXPECT_TRUE(features.x64 && features.SSE2);  // every x86-64 processor has them
  uint32_t leaf1[4], leaf7[4];
  CpuIdQuery(1, 0, leaf1);
  CpuIdQuery(7, 0, leaf7);
  EXPECT_EQ(features.AVX, ((leaf1[2] >> 28) & 1u) != 0);
  EXPECT_EQ(features.MMX, ((leaf1[3] >> 23) & 1u) != 0);
  EXPECT_EQ(features.AVX2, ((leaf7[1] >> 5) & 1u) != 0);
  EXPECT_EQ(features.AVX512VBMI, ((leaf7[2] >> 1) & 1u) != 0);
  EXPECT_FALSE(features.reserved1 || features.reserved2 || features.reserved3);
  // The processors online, not those configured (which may include offline ones).
  EXPECT_EQ(CpuCount(), get_nprocs());
}

TEST(SleepRequest, SplitsIntoSecondsAndLessThanASecond) {
  const int64_t cases[][3] = {{1, 0, 1},
                              {999999999, 0, 999999999},
                              {1000000000, 1, 0},
                              {1000000001, 1, 1},
                              {2500000000, 2, 500000000},
                              {std::numeric_limits<int64_t>::max(), 9223372036, 854775807}};
  for (const auto& c : cases) {
    const timespec request = SleepRequest(c[0]);
    EXPECT_EQ(request.tv_sec, c[1]) << c[0];
    EXPECT_EQ(request.tv_nsec, c[2]) << c[0];
  }
}

}  // namespace
}  // namespace quorl
