// The model of what the library keeps under its bridge mutex, and the checked operations on it: the
// shutdown gate, named-integer keys, constants, the script threads' registry ledger, the log buffer's
// producers and polls, and the asset callback relay.
//
// Threads: BridgeModel is guarded by the library's own bridge mutex: only a thread that holds it (through
// Lock, or in a callback the library runs with it held) touches the model, so each change is one step
// with the call it mirrors. (A session's main thread also changes the relay's callbacks between frames,
// while no handler runs.) Ledger counters are atomics written by their owner.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "checks.h"

namespace quorl::host {

// Which of two host functions is set for a callback; 0 is none.
enum Slot : int { kNone = 0, kFirst = 1, kSecond = 2 };
enum RelayKind : int { kInitialised = 0, kSelect = 1, kData = 2 };

// A request with objects present leaves a shutdown pending for the removal that empties the registry. A
// removal that empties it with no callback set clears the flag silently: then the model says "unknown".
enum class PendingShutdown { kNo, kYes, kUnknown };

struct SharedObject {
  int32_t handle;
  std::string name;
};

using KeyModel = std::map<std::string, int32_t>;

struct BridgeModel {
  Slot shutdownCallback = kNone;
  PendingShutdown pending = PendingShutdown::kNo;
  int64_t shutdownCalls = 0, callsInTrigger = 0,
          callsInRemove = 0;  // notices: all, in a request, in a removal
  // The last notice that a removal delivered: when, in which frame, on which thread.
  int64_t removalNoticeNs = 0;
  int removalNoticeFrame = -1;
  std::string removalNoticeOn;
  Slot relay[3] = {kNone, kNone, kNone};  // by RelayKind
  KeyModel sharedKeys;                    // changed only under Lock
  std::vector<SharedObject> sharedObjects;
};
BridgeModel& Model();  // only while holding the bridge mutex

// Runs `body` with the bridge mutex held through Lock (and Lock again, nested, when `nested`).
template <typename Body>
void UnderLock(ThreadContext& context, bool nested, Body&& body) {
  CALL(context, Lock)();
  if (nested) CALL(context, Lock)();
  try {
    body();
  } catch (...) {
    if (nested) CALL(context, Unlock)();
    CALL(context, Unlock)();
    throw;
  }
  if (nested) CALL(context, Unlock)();
  CALL(context, Unlock)();
}

// The shutdown gate, under Lock. Trigger checks what a request does at once; Remove may deliver a notice.
void SetShutdownCallback(ThreadContext& context, Slot slot);
void TriggerShutdown(ThreadContext& context);
void RemoveSceneObject(ThreadContext& context, int32_t handle);
// Seen an empty registry: no shutdown can be pending any more, and none may have been lost.
void SawEmptyRegistry(ThreadContext& context);
// Every other thread stopped, the scripts' objects removed: removes the rest, plays the rules once more.
void CheckShutdownGate(ThreadContext& main);

// Keys and their model: a set (never creates), an increment (creates at `amount`; under Lock when shared)
// and a comparison, reported as `check`.
void SetKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t value);
void AddToKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t amount);
void CheckKey(ThreadContext& context, Check check, const KeyModel& model, const std::string& key);

// GetUnityRenderDevice, UnityRenderEventFunc, the error texts (`all`, or a few at random) and a code
// without a text.
void CheckConstants(ThreadContext& context, bool all);

// Each script's share of the registry: its record count and the change of the call under way, one word.
class RegistryLedger {
 public:
  explicit RegistryLedger(int threads);
  void Begin(int thread, int32_t count, int32_t change);
  void End(int thread, int32_t count) { Begin(thread, count, 0); }
  // Low and high bound of the records all script threads hold right now.
  void Bounds(int* low, int* high) const;

 private:
  std::unique_ptr<std::atomic<uint64_t>[]> words_;
  int threads_;
};

// Log entries read "[<producer> #<n>] <text> |<hash>", the hash over the level and all before it, so a
// poller tells a whole entry from a damaged one. A producer belongs to the one thread that numbers them.
struct LogProducer {
  explicit LogProducer(std::string producerName) : name(std::move(producerName)) {}
  const std::string name;
  std::atomic<int64_t> added{0};
  int64_t delivered = 0;  // the last number delivered; under the bridge mutex
};

class LogLedger {
 public:
  LogProducer& AddProducer(const std::string& name);  // before the threads start
  // Adds the producer's next entry; false when enough undelivered entries wait already.
  bool Add(ThreadContext& context, LogProducer& producer, int32_t level, const std::string& text);
  // Under Lock: Get, copy and Pop up to `limit` entries, checking each; `own` adds between Get and Pop.
  int Poll(ThreadContext& context, int limit, LogProducer* own);
  // Under Lock, nothing added any more: every producer's entries all arrived, and none is left.
  void CheckComplete(ThreadContext& context);

  int64_t delivered() const { return totalDelivered_.load(std::memory_order_relaxed); }
  int64_t warnings() const { return warnings_; }  // levels 2 and 3; after the pollers stopped
  const std::string& lastMessage() const { return lastMessage_; }

 private:
  void Received(ThreadContext& context, int32_t level, const std::string& message);

  std::deque<LogProducer> producers_;
  std::atomic<int64_t> totalAdded_{0}, totalDelivered_{0};
  // Under the bridge mutex.
  const LogBufferView* view_ = nullptr;
  int64_t warnings_ = 0;
  std::string lastMessage_;
};

// The built-in policy: non-volumetric media types are accepted; the first volumetric offer ("volumetric/"
// and more) with a non-empty key fixes the key, and from then on only that key is accepted.
enum class PolicyOutcome { kNotVolumetric, kEmptyKey, kKeyFixed, kSameKey, kOtherKey };
bool IsVolumetric(const std::string& mediaType);
// Decides an offer as the policy does, with `held` the key it holds (empty while none is fixed).
PolicyOutcome DecideByPolicy(std::string* held, const std::string& mediaType, const std::string& key);

// One handler call: what its callback must receive, and what happened. The host has two functions per
// callback, so a stale one is caught: the first counts initialisations in "host.assetsInitialised" (from
// inside the callback), logs, and refuses volumetric "high"; the second answers by value1's parity.
struct RelayEvent {
  RelayKind kind = kInitialised;
  int32_t value0 = 0, value1 = 0;
  void* pointers[4] = {};
  RepresentationDescriptor* descriptor = nullptr;
  float amount = 0;

  Slot called = kNone;
  int calls = 0;
  bool hostAnswer = false;
  bool byPolicy = false;  // an offer the built-in policy decided, with this outcome
  PolicyOutcome outcome = PolicyOutcome::kNotVolumetric;
};
void SetRelayHostLog(LogLedger* ledger, LogProducer* log);  // the playback thread's, before it starts
int64_t HostInitialisations();                              // how many reached the first host function
// Sets callback `kind` to the host function in `slot`, and the model with it.
void SetRelayCallback(ThreadContext& context, RelayKind kind, Slot slot);
// Calls the handler and checks what reached the host; `callbacksKnown`: nobody may change them meanwhile.
bool Deliver(ThreadContext& context, RelayEvent& event, bool callbacksKnown, std::string* policyKey);

}  // namespace quorl::host
