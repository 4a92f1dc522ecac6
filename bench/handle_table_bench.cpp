// HandleTable create, invoke and destroy in ns per operation, against a table keyed by an
// std::unordered_map doing the same work, measured in the same run. The object kind allocates nothing,
// so the figures are the table's own cost.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/handle_table.h"
#include "ratio_reporter.h"

namespace {

constexpr int kObjects = 1024;
uintptr_t sink = 0;

quorl::HandleType kType{
    "bench", nullptr, [](void* value) { benchmark::DoNotOptimize(value); },
    [](uintptr_t argument, void* value) { sink += argument + reinterpret_cast<uintptr_t>(value); },
    [](uintptr_t argument) -> void* { return reinterpret_cast<void*>(argument); }};

// The straightforward alternative: handles from a counter, objects in a hash map.
class MapTable {
 public:
  uint32_t Create(quorl::HandleType* type, uintptr_t argument) {
    const uint32_t handle = ++next_;
    objects_.emplace(handle, quorl::HandleSlot{handle, type, type->create(argument)});
    return handle;
  }
  bool Invoke(uint32_t handle, quorl::HandleType* type, uintptr_t argument) {
    const auto found = objects_.find(handle);
    if (found == objects_.end() || found->second.type != type) return false;
    type->invoke(argument, found->second.value);
    return true;
  }
  void Destroy(uint32_t handle) {
    const auto found = objects_.find(handle);
    if (found == objects_.end()) return;
    found->second.type->destroy(found->second.value);
    objects_.erase(found);
  }

 private:
  uint32_t next_ = 0;
  std::unordered_map<uint32_t, quorl::HandleSlot> objects_;
};

// Seconds per operation, shown by the console with its SI prefix (so "12n" is 12 ns).
void SetTimePerOperation(benchmark::State& state, double operationsPerIteration) {
  state.counters["per op"] =
      benchmark::Counter(operationsPerIteration * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Each iteration creates kObjects objects, invokes each once and destroys them: 3 * kObjects operations.
template <typename Table>
void CreateInvokeDestroyWith(benchmark::State& state) {
  Table table;
  std::vector<uint32_t> handles(kObjects);
  for (auto _ : state) {
    for (int i = 0; i < kObjects; ++i)
      handles[i] = table.Create(&kType, static_cast<uintptr_t>(i));
    for (int i = 0; i < kObjects; ++i)
      benchmark::DoNotOptimize(table.Invoke(handles[i], &kType, 1));
    for (int i = 0; i < kObjects; ++i)
      table.Destroy(handles[i]);
  }
  SetTimePerOperation(state, 3.0 * kObjects);
}

// Invokes on a table of kObjects live objects, in handle order.
template <typename Table>
void InvokeWith(benchmark::State& state) {
  Table table;
  std::vector<uint32_t> handles(kObjects);
  for (int i = 0; i < kObjects; ++i)
    handles[i] = table.Create(&kType, static_cast<uintptr_t>(i));
  for (auto _ : state) {
    for (int i = 0; i < kObjects; ++i)
      benchmark::DoNotOptimize(table.Invoke(handles[i], &kType, 1));
  }
  SetTimePerOperation(state, kObjects);
}

void CreateInvokeDestroy(benchmark::State& state) {
  CreateInvokeDestroyWith<quorl::HandleTable>(state);
}
void CreateInvokeDestroyReference(benchmark::State& state) {
  CreateInvokeDestroyWith<MapTable>(state);
}
void Invoke(benchmark::State& state) {
  InvokeWith<quorl::HandleTable>(state);
}
void InvokeReference(benchmark::State& state) {
  InvokeWith<MapTable>(state);
}

BENCHMARK(CreateInvokeDestroy);
BENCHMARK(CreateInvokeDestroyReference);
BENCHMARK(Invoke);
BENCHMARK(InvokeReference);

}  // namespace

int main(int argc, char** argv) {
  return quorl::bench::RunBenchmarksWithRatios(argc, argv);
}
