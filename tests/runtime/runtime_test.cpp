// The runtime utilities: aligned memory, processor facts, the sleep request, the byte buffer and the
// worker thread.
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <array>
#include <atomic>
#include <chrono>
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

TEST(CpuFacts, AgreeWithTheIdentificationQuery) {
  const CpuFeatures& features = CpuFeatures::instance();
  EXPECT_TRUE(features.x64 && features.SSE2);  // every x86-64 processor has them
  uint32_t leaf1[4], leaf7[4];
  CpuIdQuery(1, 0, leaf1);
  CpuIdQuery(7, 0, leaf7);
  EXPECT_EQ(features.AVX, ((leaf1[2] >> 28) & 1u) != 0);
  EXPECT_EQ(features.AVX2, ((leaf7[1] >> 5) & 1u) != 0);
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
