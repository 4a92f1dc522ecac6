#include "runtime/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

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

// The native id is that of the thread that ran the body. Moving hands over the finished thread with the
// body and leaves the source with neither; Swap exchanges both; a detached thread is no longer the
// object's to join (and neither object ends the process when destroyed).
TEST(WorkerThread, MoveSwapAndDetachHandOverTheThreadAndTheBody) {
  pthread_t ranOn{};
  int calls = 0;
  WorkerThread first;
  first.Start([&] {
    ranOn = pthread_self();
    ++calls;
  });
  AwaitFinish(first);
  EXPECT_NE(pthread_equal(first.NativeId(), ranOn), 0);
  EXPECT_EQ(pthread_equal(first.NativeId(), pthread_self()), 0);
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
  target.Detach();
  EXPECT_FALSE(target.Finished());
  EXPECT_FALSE(target.Join());
}

}  // namespace
}  // namespace quorl
