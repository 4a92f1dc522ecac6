// Checks: the one checking layer of quorl-host, for the paced session and the soak alike. Every thread
// of a run owns a ThreadContext: its random numbers, how often it called each export, and how often each
// check held or failed on it. Each check is a sentence a person reads in the report.
//
// Threads: a ThreadContext is written by its owner only. Its call counts may be read by any thread
// (relaxed atomics, for the progress line), its check counts once the owner has stopped. The first few
// details of each check's failures are kept under a process-wide mutex for the report. Callbacks that
// the library runs on a thread find that thread's context through CurrentContext().
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "bridge_library.h"

#define QUORL_HOST_FOR_EACH_CHECK(X)                                                                         \
  X(kEventRunsOnce, "every queued event runs exactly once")                                                  \
  X(kEventArguments, "a fired event gets the arguments queued under its id")                                 \
  X(kFrameContext, "a frame-context event sees structSize 24 and zeros")                                     \
  X(kFireRunsPending, "firing a pending id runs the event queued under it")                                  \
  X(kSlotReuse, "no slot is lost: the ids in use are the pending ones and the lowest free is reused")        \
  X(kRenderFuncAddress, "UnityRenderEventFunc gives the address of UnityRenderEvent")                        \
  X(kRegistryModel, "each thread's scene objects match its model")                                           \
  X(kRegistryCount, "the scene object count matches the threads' models")                                    \
  X(kNameBuffers, "names and types come back into buffers of any size as the rules say")                     \
  X(kMapModel,                                                                                               \
    "the named-integer map matches each thread's model: Add never overwrites, SetValue never creates")       \
  X(kSharedModel, "keys and objects shared across threads match their model")                                \
  X(kLogFifo, "the log buffer is FIFO per producer, each entry whole, nothing lost or repeated")             \
  X(kLogView, "the log view stays at one address and its message stays put while others add")                \
  X(kShutdown, "the shutdown notice waits for the last object and comes once per request, as the rules say") \
  X(kRelayArguments, "relay callbacks receive their arguments unchanged")                                    \
  X(kRelayAnswer, "the relay returns the host callback's answer")                                            \
  X(kRelayCallbackSet, "the relay calls the callback set last, and none when cleared")                       \
  X(kSelectionPolicy, "the built-in policy fixes the first volumetric key and holds it")                     \
  X(kNullText, "a null text raises the exact logic error and the mutex is released")                         \
  X(kErrorText, "QuorlError_ToString gives the table's text, and the empty text for unknown codes")          \
  X(kRenderDevice, "GetUnityRenderDevice gives zero")                                                        \
  X(kCoverage, "every export was called")                                                                    \
  X(kThreadsFinish, "every thread finishes after the stop")

namespace quorl::host {

enum class Check : int {
#define QUORL_HOST_CHECK_ID(id, text) id,
  QUORL_HOST_FOR_EACH_CHECK(QUORL_HOST_CHECK_ID)
#undef QUORL_HOST_CHECK_ID
      kCount
};
constexpr int kCheckCount = static_cast<int>(Check::kCount);

enum class Role : int { kMain, kScript, kRender, kPlayback, kLogPoller, kCount };
constexpr int kRoleCount = static_cast<int>(Role::kCount);
const char* RoleName(Role role);

// xorshift64*: cheap enough to draw several numbers per export call without skewing the mix.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 0x2545F4914F6CDD1Dull) {}
  uint64_t Next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545F4914F6CDD1Dull;
  }
  // Uniform in [0, bound); 0 < bound < 2^31.
  int32_t Below(uint64_t bound) { return static_cast<int32_t>((Next() >> 32) % bound); }
  bool OneIn(uint32_t n) { return Below(n) == 0; }
  int32_t AnyInt() { return static_cast<int32_t>(static_cast<uint32_t>(Next() >> 17)); }
  template <typename T, size_t N>
  const T& Pick(const T (&items)[N]) {
    return items[Below(N)];
  }

 private:
  uint64_t state_;
};

// One thread's side of a run. Written by its owner only; `calls` may be read by any thread (relaxed), the
// check counts once the owner has stopped.
struct ThreadContext {
  ThreadContext(const BridgeApi& bridge, Role ofRole, int ofIndex, uint64_t seed)
      : api(bridge), role(ofRole), index(ofIndex), random(seed) {}
  std::string label() const;
  uint64_t totalCalls() const;
  // Counts one call of an export; see CALL.
  void Count(ExportId id) {
    calls[id].store(calls[id].load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  // One outcome of a check: Held returns true, Failed false. See EXPECT and FAIL.
  bool Held(Check check) { return ++checked[static_cast<int>(check)] != 0; }
  bool Failed(Check check, const std::string& detail);

  const BridgeApi& api;
  const Role role;
  const int index;
  Random random;
  int frame = -1;  // the frame this thread works on in a session, for the report
  std::atomic<uint64_t> calls[kExportCount] = {};
  uint64_t checked[kCheckCount] = {};
  uint64_t failed[kCheckCount] = {};
};

// The context of the calling thread; each thread sets its own before its first call.
ThreadContext& CurrentContext();
void SetCurrentContext(ThreadContext* context);

// Failures in all threads so far, for a progress line.
int64_t FailuresSoFar();

// Every export was called at least once by one of `contexts`.
void CheckCoverage(ThreadContext& main, const std::vector<const ThreadContext*>& contexts);
// Prints the checks summed over `contexts` with the kept details of each failed one, and the verdict;
// `all` lists the checks never made too. Returns the number of checks that failed.
int ReportChecks(const std::vector<const ThreadContext*>& contexts, bool all);

int64_t NowNs();
std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Grouped(int64_t value);  // 1234567 as "1,234,567"
std::string Duration(int64_t ns);    // "12.3 us", "4.56 ms" or "7.89 s"

}  // namespace quorl::host

// Calls export `name` through the context's table and counts it: CALL(context, Map_Add)("k", 1).
#define CALL(context, name) ((context).Count(::quorl::host::kExport_##name), (context).api.name)
// Records one outcome of check `id` on `context`: the detail, a printf format and its arguments, is
// formatted only when `condition` is false. Yields the condition.
#define EXPECT(context, id, condition, ...)               \
  ((condition) ? (context).Held(::quorl::host::Check::id) \
               : (context).Failed(::quorl::host::Check::id, ::quorl::host::Printf(__VA_ARGS__)))
#define FAIL(context, id, ...) (context).Failed(::quorl::host::Check::id, ::quorl::host::Printf(__VA_ARGS__))
