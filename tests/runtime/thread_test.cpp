#include "runtime/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

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

// The native id is that of the thread that ran the body; move assignment hands over the finished thread
// with the body and leaves the source with neither; a detached thread is no longer the object's to join
// (and neither object ends the process when destroyed).
TEST(WorkerThread, MoveAssignmentAndDetachHandOverTheThread) {
  pthread_t ranOn{};
  int calls = 0;
  WorkerThread worker;
  worker.Start([&] {
    ranOn = pthread_self();
    ++calls;
  });
  while (!worker.Finished())
    SleepNanoseconds(100000);
  EXPECT_NE(pthread_equal(worker.NativeId(), ranOn), 0);
  EXPECT_EQ(pthread_equal(worker.NativeId(), pthread_self()), 0);
  WorkerThread target;
  target = std::move(worker);
  EXPECT_TRUE(target.Finished());
  EXPECT_FALSE(worker.Finished());
  EXPECT_FALSE(worker.Join());
  EXPECT_THROW(worker.Run(), std::bad_function_call);
  target.Run();
  EXPECT_EQ(calls, 2);
  target.Detach();
  EXPECT_FALSE(target.Finished());
  EXPECT_FALSE(target.Join());
}

}  // namespace
}  // namespace quorl
