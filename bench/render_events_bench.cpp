// The render-event path, the one that runs every frame, measured the way the engine meets it: through
// the exports of a shared library loaded with dlopen. Two libraries are loaded side by side and called
// through the same function pointers: libQuorlBridge.so, the straightforward table of bench/reference/,
// built as a shared library with the same flags, and beside them, with nothing pending, a library that
// does nothing but the two lock pairs and the call. None is compiled into this program.
//
// A round trip is one queue call and the UnityRenderEvent that fires it, in three shapes: plain
// (QueueGLEventI), and frame-context with three integers or one. Each is measured with 0, 100, 10,000 and
// 100,000 events pending in the lowest slots, with heap allocations per round trip ("allocs", from the
// replaced global operator new below, which the loaded libraries bind to as well). The floor is one
// uncontended std::mutex lock/unlock pair, measured before each pending count.
//
// QUORL_BENCH_LIBRARY, QUORL_BENCH_STRAIGHTFORWARD and QUORL_BENCH_TWO_LOCK_PAIRS name other builds of
// the libraries, e.g. an older libQuorlBridge.so for a before-and-after comparison.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "bench_metrics.h"
#include "bridge/exports.h"

// The replaced global operator new below allocates with malloc, so free is the matching release.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {

std::atomic<long> allocations{0};

}  // namespace

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

constexpr int32_t kIdBase = 16000;
constexpr int kPendingCounts[] = {0, 100, 10000, 100000};

struct RenderLibrary {
  const char* label;
  decltype(&::QueueGLEventI) queueI = nullptr;
  decltype(&::QueueGLEventPrepFrameContextI) queueContextI = nullptr;
  decltype(&::QueueGLEventPrepFrameContextIII) queueContextIII = nullptr;
  decltype(&::UnityRenderEvent) fire = nullptr;
  int32_t pending = 0;     // events kept pending in slots [0, pending)
  bool onlyEmpty = false;  // holds one event at a time, so it is measured with nothing pending
};

RenderLibrary Load(const char* label, const char* variable, const char* builtPath) {
  const char* chosen = std::getenv(variable);
  const std::string path = chosen != nullptr && *chosen != '\0' ? chosen : builtPath;
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    std::fprintf(stderr, "render_events_bench: cannot load %s: %s\n", path.c_str(), dlerror());
    std::exit(2);
  }
  RenderLibrary library{label};
  auto resolve = [&](auto& pointer, const char* name) {
    pointer = reinterpret_cast<std::remove_reference_t<decltype(pointer)>>(dlsym(handle, name));
    if (pointer == nullptr) {
      std::fprintf(stderr, "render_events_bench: %s has no export %s\n", path.c_str(), name);
      std::exit(2);
    }
  };
  resolve(library.queueI, "QueueGLEventI");
  resolve(library.queueContextI, "QueueGLEventPrepFrameContextI");
  resolve(library.queueContextIII, "QueueGLEventPrepFrameContextIII");
  resolve(library.fire, "UnityRenderEvent");
  return library;  // the handle stays open for the life of the process, as in the engine
}

RenderLibrary& Ours() {
  static RenderLibrary library = Load("ours", "QUORL_BENCH_LIBRARY", QUORL_BENCH_LIBRARY_PATH);
  return library;
}
RenderLibrary& Straightforward() {
  static RenderLibrary library =
      Load("straightforward", "QUORL_BENCH_STRAIGHTFORWARD", QUORL_BENCH_STRAIGHTFORWARD_PATH);
  return library;
}
// Two lock pairs and the call, nothing else: what the shape itself costs. It holds one event at a time,
// so it is measured with nothing pending.
RenderLibrary& TwoLockPairs() {
  static RenderLibrary library = [] {
    RenderLibrary loaded =
        Load("two_lock_pairs", "QUORL_BENCH_TWO_LOCK_PAIRS", QUORL_BENCH_TWO_LOCK_PAIRS_PATH);
    loaded.onlyEmpty = true;
    return loaded;
  }();
  return library;
}

int sink = 0;
void Plain(int32_t a) {
  sink += a;
}
void WithContextIII(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  sink += a + b + c + static_cast<int>(context->structSize);
}
void WithContextI(int32_t a, const FrameContext* context) {
  sink += a + static_cast<int>(context->structSize);
}

// Pending counts only grow during a run: the straightforward table needs a quadratic time to fill, so
// each count is reached once, by adding to the one before. False if a slot came out other than expected.
bool EnsurePending(RenderLibrary& library, int32_t pending) {
  while (library.pending < pending) {
    if (library.queueI(&Plain, 0) != kIdBase + library.pending) return false;
    ++library.pending;
  }
  return library.pending == pending;
}

enum class Shape { kPlain, kFrameContextIII, kFrameContextI };
constexpr const char* kShapeNames[] = {"plain", "frame_context_iii", "frame_context_i"};

template <Shape kShape>
inline void RoundTrip(const RenderLibrary& library) {
  int32_t id;
  if constexpr (kShape == Shape::kPlain) {
    id = library.queueI(&Plain, 1);
  } else if constexpr (kShape == Shape::kFrameContextIII) {
    id = library.queueContextIII(&WithContextIII, 1, 2, 3, nullptr, nullptr);
  } else {
    id = library.queueContextI(&WithContextI, 1, nullptr, nullptr);
  }
  library.fire(id);
}

template <Shape kShape>
void BM_RoundTrip(benchmark::State& state, RenderLibrary* library) {
  if (!EnsurePending(*library, static_cast<int32_t>(state.range(0)))) {
    state.SkipWithError("the pending events did not take the lowest slots");
    return;
  }
  const long before = allocations.load();
  for (auto _ : state)
    RoundTrip<kShape>(*library);
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations.load() - before),
                                                benchmark::Counter::kAvgIterations);
}

void BM_LockUnlockFloor(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    benchmark::ClobberMemory();
    mutex.unlock();
  }
}

template <Shape kShape>
void RegisterShape(RenderLibrary& library, int pending) {
  const std::string name =
      std::string("render/") + kShapeNames[static_cast<int>(kShape)] + "/" + library.label;
  benchmark::RegisterBenchmark(name.c_str(), &BM_RoundTrip<kShape>, &library)->Arg(pending);
}

// Ours and the straightforward table alternate at each pending count, after a floor of their own, so
// that drift on a shared machine falls on both alike.
void RegisterAll() {
  for (const int pending : kPendingCounts) {
    benchmark::RegisterBenchmark("floor", &BM_LockUnlockFloor);
    for (RenderLibrary* library : {&Ours(), &Straightforward(), &TwoLockPairs()}) {
      if (library->onlyEmpty && pending != 0) continue;
      RegisterShape<Shape::kPlain>(*library, pending);
      RegisterShape<Shape::kFrameContextIII>(*library, pending);
      RegisterShape<Shape::kFrameContextI>(*library, pending);
    }
  }
}

template <Shape kShape>
void CountShape(RenderLibrary& library, int pending, long operations) {
  for (int i = 0; i < 1000; ++i)
    RoundTrip<kShape>(library);
  const std::string key = std::string("render/") + kShapeNames[static_cast<int>(kShape)] + "/" +
                          library.label + "/" + std::to_string(pending);
  quorl::bench::CountRegion(key.c_str(), operations, [&] {
    for (long i = 0; i < operations; ++i)
      RoundTrip<kShape>(library);
  });
}

// Instructions per round trip. The straightforward table is counted only where its linear scan keeps
// the run short under callgrind.
void CountAll() {
  std::mutex mutex;
  constexpr long kFloorPairs = 100000;
  quorl::bench::CountRegion("floor", kFloorPairs, [&] {
    for (long i = 0; i < kFloorPairs; ++i) {
      mutex.lock();
      benchmark::ClobberMemory();
      mutex.unlock();
    }
  });
  for (const int pending : kPendingCounts) {
    for (RenderLibrary* library : {&Ours(), &Straightforward(), &TwoLockPairs()}) {
      if (library == &Straightforward() && pending > 100) continue;
      if (library->onlyEmpty && pending != 0) continue;
      if (!EnsurePending(*library, pending)) {
        std::fprintf(stderr, "render_events_bench: %s: pending events took unexpected slots\n",
                     library->label);
        std::exit(1);
      }
      CountShape<Shape::kPlain>(*library, pending, 20000);
      CountShape<Shape::kFrameContextIII>(*library, pending, 20000);
      CountShape<Shape::kFrameContextI>(*library, pending, 20000);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  return quorl::bench::RunWithMetrics(argc, argv, &CountAll);
}
