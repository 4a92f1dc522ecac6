// Aligned memory, processor facts and the sleep request.
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

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
  struct Request {
    std::size_t alignment;
    std::size_t size;
    bool granted;
  };
  const std::size_t word = sizeof(void*);
  const std::vector<Request> requests = {
    {word, 1, true},
    {64, 100, true},
    {4096, 3, true},
    {0, 16, false},
    {48, 100, false},  // not a power of two
    {word / 2, 16, false},
    {1, 16, false},  // powers of two below the pointer size
#if !defined(__SANITIZE_ADDRESS__)
    // The allocation itself fails (AddressSanitizer ends the process here instead, by its own rule).
    {64, std::numeric_limits<std::size_t>::max() - 4096, false},
#endif
  };
  for (const Request& request : requests) {
    SCOPED_TRACE(std::to_string(request.alignment) + " " + std::to_string(request.size));
    void* block = AlignedAlloc(request.alignment, request.size);
    EXPECT_EQ(block != nullptr, request.granted);
    if (block != nullptr) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % request.alignment, 0u);
      AlignedFree(block);
    }
  }
  AlignedFree(nullptr);
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
  struct Split {
    int64_t nanoseconds;
    time_t seconds;
    long rest;
  };
  for (const Split split :
       {Split{1, 0, 1}, Split{999999999, 0, 999999999}, Split{1000000000, 1, 0}, Split{1000000001, 1, 1},
        Split{2500000000, 2, 500000000}, Split{std::numeric_limits<int64_t>::max(), 9223372036, 854775807}}) {
    SCOPED_TRACE(split.nanoseconds);
    const timespec request = SleepRequest(split.nanoseconds);
    EXPECT_EQ(request.tv_sec, split.seconds);
    EXPECT_EQ(request.tv_nsec, split.rest);
  }
}

}  // namespace
}  // namespace quorl
