// The runtime utilities: aligned memory, processor facts, the sleep request, the byte buffer and the
// worker thread.
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "runtime/buffer.h"
#include "runtime/clock.h"
#include "runtime/cpu.h"
#include "runtime/memory.h"
#include "runtime/thread.h"

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

// Where each flag stands, from the processor manuals: the leaf (1, 7 or extended 1), the register (EAX,
// EBX, ECX, EDX as 0 to 3) and the bit. Each bit set alone must raise its own flag and no other, so a
// flag read from a neighbouring bit is caught whatever the processor running the test reports there.
TEST(CpuFacts, EachFeatureBitRaisesItsOwnFlagAlone) {
  enum Leaf { kLeaf1, kLeaf7, kExtended1 };
  struct Place {
    const char* name;
    Leaf leaf;
    int reg, bit;
    bool CpuFeatures::*flag;
  };
  const Place places[] = {
      {"MMX", kLeaf1, 3, 23, &CpuFeatures::MMX},
      {"SSE", kLeaf1, 3, 25, &CpuFeatures::SSE},
      {"SSE2", kLeaf1, 3, 26, &CpuFeatures::SSE2},
      {"SSE3", kLeaf1, 2, 0, &CpuFeatures::SSE3},
      {"SSSE3", kLeaf1, 2, 9, &CpuFeatures::SSSE3},
      {"FMA3", kLeaf1, 2, 12, &CpuFeatures::FMA3},
      {"SSE4.1", kLeaf1, 2, 19, &CpuFeatures::SSE41},
      {"SSE4.2", kLeaf1, 2, 20, &CpuFeatures::SSE42},
      {"AES", kLeaf1, 2, 25, &CpuFeatures::AES},
      {"AVX", kLeaf1, 2, 28, &CpuFeatures::AVX},
      {"RDRAND", kLeaf1, 2, 30, &CpuFeatures::RDRAND},
      {"BMI1", kLeaf7, 1, 3, &CpuFeatures::BMI1},
      {"AVX2", kLeaf7, 1, 5, &CpuFeatures::AVX2},
      {"BMI2", kLeaf7, 1, 8, &CpuFeatures::BMI2},
      {"AVX512F", kLeaf7, 1, 16, &CpuFeatures::AVX512F},
      {"AVX512DQ", kLeaf7, 1, 17, &CpuFeatures::AVX512DQ},
      {"ADX", kLeaf7, 1, 19, &CpuFeatures::ADX},
      {"AVX512IFMA", kLeaf7, 1, 21, &CpuFeatures::AVX512IFMA},
      {"AVX512PF", kLeaf7, 1, 26, &CpuFeatures::AVX512PF},
      {"AVX512ER", kLeaf7, 1, 27, &CpuFeatures::AVX512ER},
      {"AVX512CD", kLeaf7, 1, 28, &CpuFeatures::AVX512CD},
      {"SHA", kLeaf7, 1, 29, &CpuFeatures::SHA},
      {"AVX512BW", kLeaf7, 1, 30, &CpuFeatures::AVX512BW},
      {"AVX512VL", kLeaf7, 1, 31, &CpuFeatures::AVX512VL},
      {"PREFETCHWT1", kLeaf7, 2, 0, &CpuFeatures::PREFETCHWT1},
      {"AVX512VBMI", kLeaf7, 2, 1, &CpuFeatures::AVX512VBMI},
      {"ABM", kExtended1, 2, 5, &CpuFeatures::ABM},
      {"SSE4a", kExtended1, 2, 6, &CpuFeatures::SSE4a},
      {"XOP", kExtended1, 2, 11, &CpuFeatures::XOP},
      {"FMA4", kExtended1, 2, 16, &CpuFeatures::FMA4},
      {"x64", kExtended1, 3, 29, &CpuFeatures::x64},
  };
  const uint32_t none[4] = {0, 0, 0, 0};
  const CpuFeatures nothing = DecodeCpuFeatures(none, none, none);
  for (const Place& p : places)
    EXPECT_FALSE(nothing.*p.flag) << p.name;
  for (const Place& set : places) {
    uint32_t leaves[3][4] = {};
    leaves[set.leaf][set.reg] = uint32_t{1} << set.bit;
    const CpuFeatures f = DecodeCpuFeatures(leaves[kLeaf1], leaves[kLeaf7], leaves[kExtended1]);
    for (const Place& p : places)
      EXPECT_EQ(f.*p.flag, &p == &set) << p.name << " with only the bit of " << set.name << " set";
    EXPECT_FALSE(f.reserved1 || f.reserved2 || f.reserved3) << set.name;
  }
}

TEST(CpuFacts, AgreeWithTheIdentificationQuery) {
  const CpuFeatures& features = CpuFeatures::instance();
  EXPECT_TRUE(features.x64 && features.SSE2);  // every x86-64 processor has them
  // Every processor that runs the suite has leaves 7 and 0x80000001.
  uint32_t leaf1[4], leaf7[4], extended1[4];
  CpuIdQuery(1, 0, leaf1);
  CpuIdQuery(7, 0, leaf7);
  CpuIdQuery(0x80000001u, 0, extended1);
  const CpuFeatures live = DecodeCpuFeatures(leaf1, leaf7, extended1);
  EXPECT_EQ(std::memcmp(&features, &live, sizeof live), 0);
  // The processors online, not those configured (which may include offline ones).
  EXPECT_EQ(CpuCount(), get_nprocs());
}

TEST(SleepRequest, SplitsIntoSecondsAndLessThanASecond) {
  const int64_t cases[][3] = {
      {1, 0, 1},          {999999999, 0, 999999999},  {1000000000, 1, 0},
      {1000000001, 1, 1}, {2500000000, 2, 500000000}, {INT64_MAX, 9223372036, 854775807}};
  for (const auto& c : cases) {
    const timespec request = SleepRequest(c[0]);
    EXPECT_EQ(request.tv_sec, c[1]) << c[0];
    EXPECT_EQ(request.tv_nsec, c[2]) << c[0];
  }
  const auto before = std::chrono::system_clock::now();
  SleepNanoseconds(-1);  // returns at once, as does 0
  SleepNanoseconds(1000000);
  const auto now = ClockNow();
  EXPECT_GE(now - before, std::chrono::milliseconds(1));
  EXPECT_LE(now, std::chrono::system_clock::now());
  EXPECT_EQ(RuntimePlaceholder1() + RuntimePlaceholder2() + RuntimePlaceholder3(), 0);
}

std::string Text(const ByteBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.Data()), buffer.Size());
}

TEST(ByteBuffer, CopiesAreDeepTheSameSizeKeepsTheStorageAndZeroSizesAreEmpty) {
  ByteBuffer first("abcdef", 6);
  const ByteBuffer copy(first);
  ByteBuffer second("xy", 2);
  second = first;
  const ByteBuffer& same = second;
  second = same;
  first.Data()[0] = 'Z';
  EXPECT_EQ(Text(copy), "abcdef");
  EXPECT_EQ(Text(second), "abcdef");
  const uint8_t* before = second.Data();
  second.Resize(6);
  second.Assign("123456", 6);
  EXPECT_EQ(second.Data(), before);
  EXPECT_EQ(Text(second), "123456");
  second.Assign("ignored", 0);
  EXPECT_TRUE(second.Data() == nullptr && second.Size() == 0);
  EXPECT_EQ(ByteBuffer("abc", 0).Data(), nullptr);
  EXPECT_EQ(ByteBuffer(std::size_t{0}).Data(), nullptr);
}

// Assigning a window of the buffer's own bytes (the whole, a head, a tail, a middle) gives those bytes,
// whether the size stays or changes.
TEST(ByteBuffer, AssignFromItsOwnStorageCopiesBeforeItFrees) {
  const std::string original = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_";
  const std::size_t windows[][2] = {{0, 64}, {0, 5}, {0, 40}, {60, 4}, {17, 30}, {63, 1}};
  for (const auto& window : windows) {
    ByteBuffer buffer(original.data(), original.size());
    buffer.Assign(buffer.Data() + window[0], window[1]);
    EXPECT_EQ(Text(buffer), original.substr(window[0], window[1])) << window[0] << "+" << window[1];
  }
}

void AwaitFinish(const WorkerThread& worker) {
  while (!worker.Finished())
    SleepNanoseconds(100000);
}

TEST(WorkerThread, JoinIsATestAndCollect) {
  WorkerThread idle;
  EXPECT_FALSE(idle.Finished());
  EXPECT_FALSE(idle.Join());
  std::atomic<bool> release{false};
  WorkerThread worker;
  worker.Start([&] {
    while (!release.load())
      SleepNanoseconds(100000);
  });
  EXPECT_FALSE(worker.Finished());  // the body is held back
  EXPECT_FALSE(worker.Join());
  release = true;
  AwaitFinish(worker);
  EXPECT_TRUE(worker.Join());
  EXPECT_FALSE(worker.Join());
}

// Moving hands over the finished thread with the body and leaves the source with neither; so does Swap.
TEST(WorkerThread, MoveAndSwapHandOverTheThreadAndTheBody) {
  int calls = 0;
  WorkerThread first;
  first.Start([&] { ++calls; });
  AwaitFinish(first);
  WorkerThread second(std::move(first));
  EXPECT_FALSE(first.Finished() || first.Join());
  EXPECT_THROW(first.Run(), std::bad_function_call);
  WorkerThread third;
  third.Swap(second);
  EXPECT_FALSE(second.Join());
  WorkerThread target;
  target = std::move(third);
  EXPECT_TRUE(target.Finished());
  EXPECT_FALSE(third.Finished());
  EXPECT_THROW(third.Run(), std::bad_function_call);
  target.Run();  // the body came along
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(target.Join());
}

// The native id is the thread that ran the body; once detached, there is nothing left to join.
TEST(WorkerThread, NativeIdNamesTheBodysThreadAndDetachLetsItGo) {
  std::atomic<pthread_t> ran{};
  WorkerThread worker;
  worker.Start([&] { ran = pthread_self(); });
  AwaitFinish(worker);
  EXPECT_TRUE(pthread_equal(worker.NativeId(), ran.load()));
  worker.Detach();
  EXPECT_FALSE(worker.Finished());
  EXPECT_FALSE(worker.Join());
}

}  // namespace
}  // namespace quorl
