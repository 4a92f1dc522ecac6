// Threads that first use a type at the same moment end with one id and one registry entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "options/value.h"

namespace quorl {
namespace {

// Declared here only to have many tables that nobody has used yet.
template <int N>
struct RaceType : BasicValueType<RaceType<N>> {
  using Payload = int;
  static int32_t Compare(const void*, const void*) { return 0; }
  static void ToText(std::string& result, const void*) { result = "race"; }
  static void* FromText(const std::string&) { return new int(N); }
};

template <int... N>
void RaceAll(std::integer_sequence<int, N...>) {
  const ValueTypeTable* seen[2][sizeof...(N)] = {};
  std::atomic<int> ready{0};
  auto worker = [&](int side) {
    ready.fetch_add(1);
    while (ready.load() < 2) {
    }
    int i = 0;
    ((seen[side][i++] = EnsureRegistered<RaceType<N>>()), ...);
  };
  std::thread first(worker, 0), second(worker, 1);
  first.join();
  second.join();
  std::lock_guard<std::mutex> hold(ValueTypeLock());
  const std::vector<ValueTypeTable*>& registry = ValueTypeRegistry();
  for (const ValueTypeTable* table : seen[1]) {
    ASSERT_EQ(std::count(registry.begin(), registry.end(), table), 1);
    EXPECT_EQ(registry.at(table->id), table);
  }
}

TEST(ValueTypeRegistration, RacingFirstUsesEndWithOneIdAndOneEntry) {
  RaceAll(std::make_integer_sequence<int, 64>());
}

}  // namespace
}  // namespace quorl
