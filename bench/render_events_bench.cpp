// The render-event path, the one that runs every frame: ns per queue-and-fire round trip through the
// exports, for the plain and the frame-context shapes, with 0 to 100,000 events pending in lower slots;
// heap allocations per round trip; an uncontended lock/unlock pair as the floor; and a straightforward
// table (a std::function per slot, found by a linear scan) as the reference. Run it and read the
// counters: "allocs" is heap allocations per round trip, "x_floor" the time in lock pairs.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <new>
#include <vector>

#include "bridge/exports.h"
#include "bridge/render_events.h"

// The replaced global operator new below allocates with malloc, so free is the matching release.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {

std::atomic<long> allocations{0};

}  // namespace

// Counts every allocation of the process, so a benchmark can report allocations per iteration.
void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

int sink = 0;
void Plain(int32_t a) {
  sink += a;
}
void WithContext(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  sink += a + b + c + static_cast<int>(context->structSize);
}

// Leaves exactly `pending` events pending, in the lowest slots, and every other slot free.
void SetPending(int pending) {
  const int32_t count = quorl::RenderEventSlotCount();
  for (int32_t i = 0; i < count; ++i)
    UnityRenderEvent(quorl::kRenderEventIdBase + i);
  for (int i = 0; i < pending; ++i)
    QueueGLEventI(&Plain, 0);
}

void BM_LockUnlockFloor(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    benchmark::ClobberMemory();
    mutex.unlock();
  }
}

template <bool kFrameContext>
void BM_RoundTrip(benchmark::State& state) {
  SetPending(static_cast<int>(state.range(0)));
  const long before = allocations.load();
  for (auto _ : state) {
    const int32_t id = kFrameContext
                           ? QueueGLEventPrepFrameContextIII(&WithContext, 1, 2, 3, nullptr, nullptr)
                           : QueueGLEventI(&Plain, 1);
    UnityRenderEvent(id);
  }
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations.load() - before),
                                                benchmark::Counter::kAvgIterations);
  SetPending(0);
}

// The straightforward table: what one would write first.
class StraightforwardTable {
 public:
  int32_t Queue(std::function<void()> call) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      if (!slots_[i]) {
        slots_[i] = std::move(call);
        return quorl::kRenderEventIdBase + static_cast<int32_t>(i);
      }
    }
    slots_.push_back(std::move(call));
    return quorl::kRenderEventIdBase + static_cast<int32_t>(slots_.size() - 1);
  }
  void Fire(int32_t id) {
    std::function<void()> call;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      const auto index = static_cast<std::size_t>(id - quorl::kRenderEventIdBase);
      if (index >= slots_.size()) return;
      call.swap(slots_[index]);
    }
    if (call) call();
  }

 private:
  std::mutex mutex_;
  std::vector<std::function<void()>> slots_;
};

template <bool kFrameContext>
void BM_StraightforwardRoundTrip(benchmark::State& state) {
  StraightforwardTable table;
  for (int64_t i = 0; i < state.range(0); ++i)
    table.Queue([] { Plain(0); });
  const long before = allocations.load();
  for (auto _ : state) {
    int32_t id;
    if (kFrameContext) {
      id = table.Queue([] {
        FrameContext context;
        auto scope = std::make_shared<quorl::FrameContextScope>();
        context = FrameContext{24, 0, 0, 0};
        WithContext(1, 2, 3, &context);
      });
    } else {
      id = table.Queue([] { Plain(1); });
    }
    table.Fire(id);
  }
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations.load() - before),
                                                benchmark::Counter::kAvgIterations);
}

}  // namespace

BENCHMARK(BM_LockUnlockFloor);
BENCHMARK(BM_RoundTrip<false>)->Name("RoundTrip/plain")->Arg(0)->Arg(100)->Arg(10000)->Arg(100000);
BENCHMARK(BM_RoundTrip<true>)->Name("RoundTrip/frame_context")->Arg(0)->Arg(100)->Arg(10000)->Arg(100000);
BENCHMARK(BM_StraightforwardRoundTrip<false>)
    ->Name("Straightforward/plain")
    ->Arg(0)
    ->Arg(100)
    ->Arg(10000)
    ->Arg(100000);
BENCHMARK(BM_StraightforwardRoundTrip<true>)
    ->Name("Straightforward/frame_context")
    ->Arg(0)
    ->Arg(100)
    ->Arg(10000)
    ->Arg(100000);

BENCHMARK_MAIN();
