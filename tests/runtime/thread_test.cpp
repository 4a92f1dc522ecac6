#include "runtime/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "runtime/clock.h"

namespace quorl {
namespace {

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

// Moving hands over the finished thread with the body and leaves the source with neither; Swap exchanges
// both.
TEST(WorkerThread, MoveAndSwapHandOverTheThreadAndTheBody) {
  int calls = 0;
  WorkerThread first;
  first.Start([&] { ++calls; });
  AwaitFinish(first);
  WorkerThread second(std::move(first));
  EXPECT_FALSE(first.Finished());
  EXPECT_FALSE(first.Join());
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

}  // namespace
}  // namespace quorl
