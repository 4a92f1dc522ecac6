// What quorl-host expects of the state the library keeps under its bridge mutex, and the checked
// operations on it: the shutdown gate, the keys of the named-integer map, the constants, the registry
// ledger of the script threads, the log buffer's producers and polls, and the asset callback relay.
//
// Ownership and threads: BridgeModel is guarded by the library's own bridge mutex. It is read and written
// only by a thread that holds that mutex through Lock, or inside a callback that the library runs with it
// held; so each model change is one step with the library call it mirrors. The one exception is the
// session, whose main thread changes the relay's callbacks between frames while no handler runs. The
// ledgers' counters are atomics, each written by its owner. The relay's callbacks run on the playback
// thread, the only one that calls the handlers.
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

// The shutdown gate: a request with objects present leaves a pending shutdown that the removal which
// empties the registry delivers. Whether the flag is set is not always knowable: a removal that empties
// the registry while no callback is set clears it silently, so the model says "unknown" until it sees.
enum class PendingShutdown { kNo, kYes, kUnknown };

struct SharedObject {
  int32_t handle;
  std::string name;
};

using KeyModel = std::map<std::string, int32_t>;

struct BridgeModel {
  Slot shutdownCallback = kNone;
  PendingShutdown pending = PendingShutdown::kNo;
  int64_t shutdownCalls = 0, callsInTrigger = 0, callsInRemove = 0, triggersWithObjects = 0,
          triggersEmpty = 0;
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

// The shutdown gate, each under Lock. RemoveSceneObject marks its call as one that may deliver the
// notice; TriggerShutdown checks the immediate outcome of a request against the rules.
void SetShutdownCallback(ThreadContext& context, Slot slot);
void TriggerShutdown(ThreadContext& context);
void RemoveSceneObject(ThreadContext& context, int32_t handle);
// Seen an empty registry: no shutdown can be pending any more, and none may have been lost.
void SawEmptyRegistry(ThreadContext& context);
// Every other thread stopped and every script's object removed: removes the shared objects and plays the
// gate's rules through once more.
void CheckShutdownGate(ThreadContext& main);

// Keys and their model: a set (never creates), an increment as one step (creates the key at `amount`;
// under Lock when others share it), and a comparison, reported as `check`.
void SetKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t value);
void AddToKey(ThreadContext& context, KeyModel& model, const std::string& key, int32_t amount);
void CheckKey(ThreadContext& context, Check check, const KeyModel& model, const std::string& key);

// GetUnityRenderDevice, UnityRenderEventFunc, the error texts (`all`, or a few at random) and a code
// without a text.
void CheckConstants(ThreadContext& context, bool all);

// Each script thread's share of the scene object registry. A word packs the thread's record count with
// the change of the call it is making (0 when none), so one load tells "count, or count plus change".
class RegistryLedger {
 public:
  explicit RegistryLedger(int threads);
  void Begin(int thread, int32_t count, int32_t change);
  void End(int thread, int32_t count) { Begin(thread, count, 0); }
  // Low and high bound of the records all script threads hold right now.
  void Bounds(int64_t* low, int64_t* high) const;

 private:
  std::unique_ptr<std::atomic<uint64_t>[]> words_;
  int threads_;
};

// Log entries read "[<producer> #<n>] <text> |<hash>": n counts a producer's entries from 1, and the
// hash covers the level and all before it, so a poller tells a whole entry from a damaged one. A
// producer belongs to one thread, which numbers its entries; the count it added may be read anywhere.
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
  // Under Lock: Get, copy and Pop up to `limit` entries and check each; returns how many. With `own`, now
  // and then adds one of its entries between a Get and its Pop, to see the entry in view stay put.
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

// The built-in representation policy: anything but a volumetric media type ("volumetric/" and more) is
// accepted; the first volumetric offer with a non-empty key fixes the key, and from then on only it is.
enum class PolicyOutcome { kNotVolumetric, kEmptyKey, kKeyFixed, kSameKey, kOtherKey };
bool IsVolumetric(const std::string& mediaType);
class SelectionPolicy {
 public:
  PolicyOutcome Decide(const std::string& mediaType, const std::string& key);
  const std::string& key() const { return key_; }

 private:
  std::string key_;
};

// One handler call of the relay: what its callback must receive, and what happened. The host has two
// functions per callback, so a relay that calls a stale one is caught. The first is the session's host:
// it counts what reaches it in "host.assetsInitialised", calling back into the library from inside the
// callback, logs, and refuses volumetric "high" offers; the second answers by the second value's parity.
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
// Calls the handler of `event` and checks what reached the host; returns the handler's answer.
// `callbacksKnown`: nobody changes the callbacks meanwhile, so which one must run, if any, is known.
bool Deliver(ThreadContext& context, RelayEvent& event, bool callbacksKnown, SelectionPolicy& policy);

}  // namespace quorl::host
