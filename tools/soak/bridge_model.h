// The soak's model of what the library keeps under its bridge mutex and of what crosses threads: the
// shutdown gate, the relay's callbacks, the shared keys and scene objects, the log producers, and the
// registry counts of the script threads.
//
// Ownership and threads: BridgeModel is guarded by the library's own bridge mutex. It is read and written
// only by a thread that holds that mutex, through Lock, or inside a callback the library runs with it
// held (the shutdown notice, the relay callbacks); that makes each model change one step with the library
// call it mirrors. The log producers' counts and the registry ledger are atomics, written by their owner
// thread and read by anyone.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "soak_context.h"

namespace quorl::soak {

// Which of two host functions is set for a callback; 0 is none.
enum Slot : int { kNone = 0, kFirst = 1, kSecond = 2 };

// The shutdown gate: a trigger with objects present leaves a pending shutdown that the removal which
// empties the registry delivers. Whether the flag is set is not always knowable: a removal that empties
// the registry while no callback is set clears it silently, so the model says "unknown" until it sees.
enum class PendingShutdown { kNo, kYes, kUnknown };

struct SharedObject {
  int32_t handle;
  std::string name;
};

struct BridgeModel {
  // Shutdown.
  Slot shutdownCallback = kNone;
  PendingShutdown pending = PendingShutdown::kNo;
  int64_t shutdownCalls = 0;
  int64_t shutdownCallsInTrigger = 0;
  int64_t shutdownCallsInRemove = 0;
  int64_t triggersWithObjects = 0;
  int64_t triggersEmpty = 0;

  // Relay callbacks: initialised, select representation, data received.
  Slot relay[3] = {kNone, kNone, kNone};

  // Keys and objects that script threads change only inside Lock and Unlock.
  std::map<std::string, int32_t> sharedMap;
  std::vector<SharedObject> sharedObjects;

  // Log delivery: the last sequence number each producer delivered.
  std::vector<int64_t> logDelivered;
  const LogBufferView* logView = nullptr;
};

// The one model; only while holding the bridge mutex.
BridgeModel& Model();

// Runs `body` with the bridge mutex held through Lock (and Lock again, nested, when `nested`).
template <typename Body>
void UnderLock(ThreadContext& context, bool nested, Body&& body) {
  SOAK_CALL(context, Lock)();
  if (nested) SOAK_CALL(context, Lock)();
  try {
    body();
  } catch (...) {
    if (nested) SOAK_CALL(context, Unlock)();
    SOAK_CALL(context, Unlock)();
    throw;
  }
  if (nested) SOAK_CALL(context, Unlock)();
  SOAK_CALL(context, Unlock)();
}

// Log entries: producer p numbers its entries 1, 2, ...; the level and text follow from (p, n), so the
// poller can tell a whole entry from a damaged one.
class LogLedger {
 public:
  explicit LogLedger(int producers);

  int producers() const { return static_cast<int>(added_.size()); }
  static std::string Text(int producer, int64_t sequence);
  static int32_t Level(int64_t sequence) { return static_cast<int32_t>(sequence % 7) - 2; }

  // Adds the producer's next entry; false when the buffer holds enough undelivered entries already.
  bool Add(ThreadContext& context, int producer);
  int64_t added(int producer) const {
    return added_[static_cast<size_t>(producer)]->load(std::memory_order_acquire);
  }

  // Under Lock: takes up to `limit` entries (Get, copy, Pop as a unit) and checks each; returns how many.
  int Poll(ThreadContext& context, int limit, int ownProducer);
  // Under Lock, nothing added any more: every producer's entries all arrived.
  void CheckComplete(ThreadContext& context);

 private:
  void Deliver(ThreadContext& context, int32_t level, const std::string& text);

  std::vector<std::unique_ptr<std::atomic<int64_t>>> added_;
  std::atomic<int64_t> totalAdded_{0};
  std::atomic<int64_t> totalDelivered_{0};
};

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

}  // namespace quorl::soak
