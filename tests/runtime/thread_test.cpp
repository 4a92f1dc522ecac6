#include "runtime/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "runtime/clock.h"

namespace quorl {
namespace {

TEST(WorkerThread, JoinIsATestAndCollect) {
  WorkerThread idle;
  EXPECT_FALSE(idle.Join());
  std::atomic<bool> release{false};
  WorkerThread worker;
  worker.Start([&] {
    while (!release.load())
      SleepNanoseconds(100000);
  });
  EXPECT_FALSE(worker.Join());  // the body is held back
  release = true;
  while (!worker.Finished())
    SleepNanoseconds(100000);
  EXPECT_TRUE(worker.Join());
  EXPECT_FALSE(worker.Join());
}

TEST(WorkerThread, MoveAndSwapCarryTheThreadAndTheBody) {
  int calls = 0;
  WorkerThread first;
  first.Start([&] { ++calls; });
  while (!first.Finished())
    SleepNanoseconds(100000);
  WorkerThread second(std::move(first));
  EXPECT_FALSE(first.Finished());
  EXPECT_THROW(first.Run(), std::bad_function_call);
  WorkerThread third;
  third.Swap(second);
  EXPECT_FALSE(second.Join());
  third.Run();  // the body came along
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(third.Join());
}

}  // namespace
}  // namespace quorl
