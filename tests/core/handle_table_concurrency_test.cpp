#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

#include "core/handle_table.h"

namespace quorl {
namespace {

// The first Add makes every bucket up to its number; then four threads add unique items to seven buckets
// and copies of one shared item to the last, and nothing is lost.
TEST(BucketedSharedList, AddMakesTheBucketsUpToTheNumberAndLosesNothingFromFourThreads) {
  constexpr int kThreads = 4, kPerThread = 5000, kBuckets = 7;
  BucketedSharedList<int> list;
  const auto shared = std::make_shared<int>(-1);
  list.Add(shared, kBuckets);
  EXPECT_EQ(list.BucketCount(), kBuckets + 1u);
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
  EXPECT_EQ(shared.use_count(), 2 + kThreads * kPerThread);
  std::vector<int> seen, expected(kThreads * kPerThread);
  for (std::size_t b = 0; b < kBuckets; ++b) {
    for (const auto& item : list.TakeBucket(b))
      seen.push_back(*item);
  }
  std::sort(seen.begin(), seen.end());
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace quorl
