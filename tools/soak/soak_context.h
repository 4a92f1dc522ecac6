// The per-thread side of a soak: which exports a thread called and how often, which invariants it
// checked and which failed, and its own random numbers.
//
// Every soak thread owns one ThreadContext and is the only writer of it; the counters are plain
// integers, read by the main thread after the threads were joined (or, for the progress line, as
// relaxed atomics). Callbacks that the library runs on a soak thread (render events, the shutdown notice,
// the relay's callbacks) find that thread's context through CurrentContext(). A failure is printed at
// once, with what was expected and what was seen, under one process-wide mutex; the first few of each
// check are printed, all are counted.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "bridge_library.h"
#include "export_names.h"

namespace quorl::soak {

using host::BridgeApi;

enum ExportId : int {
#define QUORL_SOAK_EXPORT_ID(name) kExport_##name,
  QUORL_HOST_FOR_EACH_EXPORT(QUORL_SOAK_EXPORT_ID)
#undef QUORL_SOAK_EXPORT_ID
      kExportCount
};
const char* ExportName(int id);

// The invariants, each a sentence a person reads in the report.
enum class Check : int {
  kEventRunsOnce,
  kEventArguments,
  kFrameContext,
  kFireRunsPending,
  kSlotReuse,
  kRenderFuncAddress,
  kRegistryModel,
  kRegistryCount,
  kNameBuffers,
  kMapModel,
  kSharedModel,
  kLogFifo,
  kLogView,
  kShutdown,
  kRelayArguments,
  kRelayCallbackSet,
  kSelectionPolicy,
  kNullText,
  kErrorText,
  kRenderDevice,
  kCoverage,
  kThreadsFinish,
  kCount
};
constexpr int kCheckCount = static_cast<int>(Check::kCount);
const char* CheckName(Check check);

enum class ThreadKind : int { kMain, kScript, kRender, kPlayback, kLogPoller, kCount };
constexpr int kThreadKindCount = static_cast<int>(ThreadKind::kCount);
const char* ThreadKindName(ThreadKind kind);

// xorshift64*: cheap enough to draw several numbers per export call without skewing the mix.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 0x2545F4914F6CDD1Dull) {
    if (state_ == 0) state_ = 1;
  }
  uint64_t Next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545F4914F6CDD1Dull;
  }
  // Uniform in [0, bound); bound > 0.
  uint32_t Below(uint32_t bound) { return static_cast<uint32_t>((Next() >> 32) % bound); }
  bool OneIn(uint32_t n) { return Below(n) == 0; }
  int32_t AnyInt() { return static_cast<int32_t>(static_cast<uint32_t>(Next() >> 17)); }

 private:
  uint64_t state_;
};

class ThreadContext {
 public:
  ThreadContext(const BridgeApi& api, ThreadKind kind, int index, uint64_t seed);
  ThreadContext(const ThreadContext&) = delete;
  ThreadContext& operator=(const ThreadContext&) = delete;

  const BridgeApi& api() const { return api_; }
  ThreadKind kind() const { return kind_; }
  int index() const { return index_; }
  Random& random() { return random_; }
  std::string label() const;

  // Counts one call of an export; see SOAK_CALL.
  void Count(ExportId id) {
    calls_[id].store(calls_[id].load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  uint64_t calls(int id) const { return calls_[id].load(std::memory_order_relaxed); }
  uint64_t totalCalls() const;

  // Records one outcome of a check; `detail` is built only when it failed. Returns `holds`.
  template <typename Detail>
  bool Expect(Check check, bool holds, Detail&& detail) {
    ++checked_[static_cast<int>(check)];
    if (!holds) Fail(check, detail());
    return holds;
  }
  void Fail(Check check, const std::string& detail);
  uint64_t checked(Check check) const { return checked_[static_cast<int>(check)]; }
  uint64_t failed(Check check) const { return failed_[static_cast<int>(check)]; }

 private:
  const BridgeApi& api_;
  ThreadKind kind_;
  int index_;
  Random random_;
  std::atomic<uint64_t> calls_[kExportCount] = {};
  uint64_t checked_[kCheckCount] = {};
  uint64_t failed_[kCheckCount] = {};
};

// The context of the calling thread; set by the thread's body before its first call.
ThreadContext& CurrentContext();
void SetCurrentContext(ThreadContext* context);

// printf into a std::string, for failure details.
std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// How many failures of a check were printed across all threads is bounded; this many per check.
constexpr int kFailuresPrinted = 5;

}  // namespace quorl::soak

// Calls export `name` through the context's table and counts it: SOAK_CALL(context, Map_Add)("k", 1).
#define SOAK_CALL(context, name) ((context).Count(::quorl::soak::kExport_##name), (context).api().name)
