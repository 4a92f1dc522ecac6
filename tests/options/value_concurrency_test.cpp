// Two threads that first use a type at the same moment.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "options/value.h"

namespace quorl {
namespace {

// Types declared here only to have many tables that nobody has used yet.
template <int N>
struct RaceType : BasicValueType<RaceType<N>> {
  using Payload = int;
  static int32_t Compare(const void* a, const void* b) {
    return *static_cast<const int*>(a) < *static_cast<const int*>(b) ? -1 : 0;
  }
  static void ToText(std::string& result, const void*) { result = "race"; }
  static void* FromText(const std::string&) { return new int(N); }
};

template <int... N>
void RaceAll(std::integer_sequence<int, N...>) {
  constexpr int kTypes = sizeof...(N);
  const ValueTypeTable* seen[2][kTypes] = {};
  std::atomic<int> ready{0};
  auto worker = [&](int side) {
    ready.fetch_add(1);
    while (ready.load() < 2) {
    }
    int i = 0;
    ((seen[side][i++] = EnsureRegistered<RaceType<N>>()), ...);
  };
  std::thread first(worker, 0);
  std::thread second(worker, 1);
  first.join();
  second.join();

  std::lock_guard<std::mutex> hold(ValueTypeLock());
  const std::vector<ValueTypeTable*>& registry = ValueTypeRegistry();
  for (int i = 0; i < kTypes; ++i) {
    ASSERT_EQ(seen[0][i], seen[1][i]);
    ASSERT_NE(seen[0][i]->id, 0);
    EXPECT_EQ(std::count(registry.begin(), registry.end(), seen[0][i]), 1);
    EXPECT_EQ(registry[seen[0][i]->id], seen[0][i]);
    EXPECT_NE(seen[0][i]->fromText, nullptr);
  }
}

TEST(ValueTypeRegistration, RacingFirstUsesEndWithOneIdAndOneEntry) {
  RaceAll(std::make_integer_sequence<int, 64>());
  OptionValue value;
  value.SetTyped<RaceType<3>>(9);
  EXPECT_EQ(value.ToText(), "race");
}

}  // namespace
}  // namespace quorl
