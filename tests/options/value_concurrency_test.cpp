// Threads that first use a type at the same moment end with one id and one registry entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "options/value.h"

namespace quorl {
namespace {

// Tables that nobody has used yet: each RaceType<N> is a type of its own.
template <int N>
struct RaceType : Int32Type {};

template <int... N>
void RaceAll(std::integer_sequence<int, N...>) {
  std::atomic<int> ready{0};
  auto worker = [&ready] {
    ready.fetch_add(1);
    while (ready.load() < 2) {
    }
    (EnsureRegistered<RaceType<N>>(), ...);
  };
  std::thread first(worker), second(worker);
  first.join();
  second.join();
  for (const ValueTypeTable* table : {EnsureRegistered<RaceType<N>>()...}) {
    std::lock_guard<std::mutex> hold(ValueTypeLock());
    const std::vector<ValueTypeTable*>& registry = ValueTypeRegistry();
    EXPECT_EQ(std::count(registry.begin(), registry.end(), table), 1);
    EXPECT_EQ(registry.at(table->id), table);
  }
}

TEST(ValueTypeRegistration, RacingFirstUsesEndWithOneIdAndOneEntry) {
  RaceAll(std::make_integer_sequence<int, 64>());
}

}  // namespace
}  // namespace quorl
