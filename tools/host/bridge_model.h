// BridgeModel: what quorl-host expects of the state the library keeps under its bridge mutex (the
// shutdown gate, the relay's callbacks, the keys and scene objects that threads share), the shutdown
// gate's checked operations, and the ledger of how many scene objects each script thread holds.
//
// Ownership and threads: BridgeModel is guarded by the library's own bridge mutex. It is read and written
// only by a thread that holds that mutex, through Lock, or inside a callback the library runs with it
// held (the shutdown notice, the relay's callbacks); each model change is then one step with the library
// call it mirrors. The one exception is the session, whose main thread changes the relay's callbacks
// between frames while no handler runs. The registry ledger is atomics, each word written by its owner.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "checks.h"

namespace quorl::host {

// Which of two host functions is set for a callback; 0 is none.
enum Slot : int { kNone = 0, kFirst = 1, kSecond = 2 };

// The shutdown gate: a request with objects present leaves a pending shutdown that the removal which
// empties the registry delivers. Whether the flag is set is not always knowable: a removal that empties
// the registry while no callback is set clears it silently, so the model says "unknown" until it sees.
enum class PendingShutdown { kNo, kYes, kUnknown };

struct SharedObject {
  int32_t handle;
  std::string name;
};

struct BridgeModel {
  Slot shutdownCallback = kNone;
  PendingShutdown pending = PendingShutdown::kNo;
  int64_t shutdownCalls = 0;
  int64_t shutdownCallsInTrigger = 0;
  int64_t shutdownCallsInRemove = 0;
  int64_t triggersWithObjects = 0;
  int64_t triggersEmpty = 0;
  // The last notice that a removal delivered: when, in which frame, on which thread.
  int64_t removalNoticeNs = 0;
  int removalNoticeFrame = -1;
  std::string removalNoticeOn;

  // Relay callbacks: initialised, select representation, data received.
  Slot relay[3] = {kNone, kNone, kNone};

  // Keys and objects that threads change only inside Lock and Unlock.
  std::map<std::string, int32_t> sharedMap;
  std::vector<SharedObject> sharedObjects;
};

// The one model; only while holding the bridge mutex.
BridgeModel& Model();

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

// The shutdown gate, each under Lock. Remove is Scene_Objects_Remove, marked as a call that may deliver
// the notice; Trigger requests the shutdown and checks the immediate outcome against the rules.
void SetShutdownCallback(ThreadContext& context, Slot slot);
void TriggerShutdown(ThreadContext& context);
void RemoveSceneObject(ThreadContext& context, int32_t handle);
// Seen an empty registry: no shutdown can be pending any more, and none may have been lost.
void SawEmptyRegistry(ThreadContext& context);
// Main thread, every other thread stopped and every script's object removed: removes the shared objects
// and plays the gate's rules through once more on an empty registry.
void CheckShutdownGate(ThreadContext& context);

// Shared keys, under Lock: a test and an update as one step (adds `amount`, or creates the key with it),
// a plain set, and a comparison of the library's value with the model's.
void AddToShared(ThreadContext& context, const std::string& key, int32_t amount);
void SetShared(ThreadContext& context, const std::string& key, int32_t value);
void CheckSharedKey(ThreadContext& context, const std::string& key);

// Each script thread's share of the scene object registry, published so that a thread holding Lock can
// add them up. The word packs the thread's record count with the change of the call it is making (0 when
// none), so one load tells "count" or "count, or count plus change".
class RegistryLedger {
 public:
  explicit RegistryLedger(int threads);
  void Begin(int thread, int32_t count, int32_t change);
  void End(int thread, int32_t count);
  // Low and high bound of the records all script threads hold right now.
  void Bounds(int64_t* low, int64_t* high) const;

 private:
  std::vector<std::unique_ptr<std::atomic<uint64_t>>> words_;
};

}  // namespace quorl::host
