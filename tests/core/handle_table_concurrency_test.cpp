#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "core/handle_table.h"

namespace quorl {
namespace {

TEST(BucketedSharedList, AddFromFourThreadsLosesNothing) {
  constexpr int kThreads = 4, kPerThread = 5000, kBuckets = 7;
  BucketedSharedList<int> list;
  const auto shared = std::make_shared<int>(-1);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        list.Add(std::make_shared<int>(t * kPerThread + i), static_cast<std::size_t>((t + i) % kBuckets));
        list.Add(shared, kBuckets);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(shared.use_count(), 1 + kThreads * kPerThread);
  std::vector<int> seen;
  for (std::size_t b = 0; b < kBuckets; ++b) {
    for (const auto& item : list.TakeBucket(b))
      seen.push_back(*item);
  }
  std::sort(seen.begin(), seen.end());
  ASSERT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kPerThread));
  for (int i = 0; i < kThreads * kPerThread; ++i)
    ASSERT_EQ(seen[static_cast<std::size_t>(i)], i);
}

}  // namespace
}  // namespace quorl
