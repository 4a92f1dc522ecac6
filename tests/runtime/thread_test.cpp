#include "runtime/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "runtime/clock.h"

namespace quorl {
namespace {

// Polls Join until the body has finished; Join itself never waits.
void JoinWhenDone(WorkerThread& worker) {
  while (!worker.Join())
    SleepNanoseconds(100000);
}

TEST(WorkerThread, JoinIsATestAndCollect) {
  WorkerThread idle;
  EXPECT_FALSE(idle.Finished());
  EXPECT_FALSE(idle.Join());

  std::atomic<bool> release{false};
  std::atomic<int> calls{0};
  WorkerThread worker;
  worker.Start([&] {
    while (!release.load())
      SleepNanoseconds(100000);
    ++calls;
  });
  EXPECT_FALSE(worker.Join());  // the body is still held back
  EXPECT_FALSE(worker.Finished());
  release = true;
  JoinWhenDone(worker);
  EXPECT_EQ(calls.load(), 1);
  EXPECT_FALSE(worker.Join());  // nothing left to collect
}

TEST(WorkerThread, MoveTakesTheThreadAndLeavesTheSourceBare) {
  WorkerThread first;
  first.Start([] {});
  while (!first.Finished())
    SleepNanoseconds(100000);
  WorkerThread second(std::move(first));
  EXPECT_FALSE(first.Finished());
  EXPECT_FALSE(first.Join());
  EXPECT_TRUE(second.Finished());
  WorkerThread third;
  third = std::move(second);
  EXPECT_TRUE(third.Join());
  EXPECT_THROW(second.Run(), std::bad_function_call);
}

TEST(WorkerThread, SwapExchangesThreadsAndBodies) {
  // Swapped only once the body is done: the running thread reports back to the object it started on.
  int calls = 0;
  WorkerThread done;
  done.Start([&] { ++calls; });
  while (!done.Finished())
    SleepNanoseconds(100000);
  WorkerThread bare;
  done.Swap(bare);
  EXPECT_FALSE(done.Join());
  EXPECT_TRUE(bare.Finished());
  EXPECT_TRUE(bare.Join());
  bare.Run();  // the body came along with the thread
  EXPECT_EQ(calls, 2);
  EXPECT_THROW(done.Run(), std::bad_function_call);
}

TEST(WorkerThreadDeathTest, DestroyingAnOwnerOfAThreadTerminates) {
  EXPECT_DEATH(
      {
        WorkerThread worker;
        worker.Start([] {});
      },
      "");
}

}  // namespace
}  // namespace quorl
