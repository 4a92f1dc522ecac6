// RenderTraffic: render events from the queuing threads to the render thread, with a record per event
// that proves it ran once, under the id it was queued for, with its arguments. Each queuing thread owns a
// ring of records, each reused once its event ran; a token (producer, index, generation) is the first
// argument, except for the plain shape, counted per id instead. Ids are handed over at the end of each
// frame in a session, in bursts of random size in a soak, so that many pend and the table gets holes.
//
// Threads: Queue and HandOver on the producer's owner (a script thread; the render thread for follow-ups),
// Fire and RenderStep on the one firing thread, Finish on the main thread once every other has stopped.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "checks.h"

namespace quorl::host {

enum class Shape : uint8_t { kPlain, kI, kIII, kFrameContextI, kFrameContextIII };
constexpr int kShapeCount = 5;
const char* ShapeName(Shape shape);

struct EventRecord {
  // Generation in the high half, times run in the low half: one word, so a reader sees both together.
  std::atomic<uint64_t> word{0};
  std::atomic<int32_t> firedUnder{0};
  // Written by the owner before the queue call; the library's slot mutex publishes them to the firer.
  Shape shape = Shape::kI;
  int32_t b = 0, c = 0;
  bool followUp = false;
  // Owner only.
  bool outstanding = false;
  uint32_t generation = 0;
  int32_t queuedId = 0;
};

// An id handed to the render thread, and the token queued under it (-1 for the plain shape).
struct HandedEvent {
  int32_t id;
  int32_t token;
};

struct EventProducer {
  static constexpr uint32_t kRing = 4096;
  explicit EventProducer(int producerIndex) : index(producerIndex), ring(new EventRecord[kRing]) {}
  const int index;
  std::unique_ptr<EventRecord[]> ring;
  // Owner only.
  uint32_t cursor = 0;
  std::vector<HandedEvent> backlog;
  size_t handOverAt = 1;
  int64_t queued[kShapeCount] = {};
  std::mutex mutex;  // guards `handedOver`
  std::vector<HandedEvent> handedOver;
};

class RenderTraffic {
 public:
  // `producers` rings: one per script thread and one for the render thread's follow-ups (the last).
  explicit RenderTraffic(int producers);
  ~RenderTraffic();

  EventProducer& producer(int index) { return *producers_[static_cast<size_t>(index)]; }

  // Queues one event of a random shape onto the producer's backlog; returns its id, or 0 when the
  // producer had no free record or the plain shape's budget was spent.
  int32_t Queue(ThreadContext& context, EventProducer& producer);
  // Hands the backlog over: all of it, or with `bursts` once it reached a random size.
  void HandOver(EventProducer& producer, Random* bursts = nullptr);
  std::vector<HandedEvent> TakeHandedOver();

  // The firing thread: learns the address to fire through, as the engine does.
  void StartFiring(ThreadContext& context);
  // Fires a handed id and checks that its pending event ran.
  void Fire(ThreadContext& context, const HandedEvent& event);
  // Soak: fires all that was handed over, some of it twice, and ids nobody handed over; returns how
  // many were handed over.
  size_t RenderStep(ThreadContext& context);
  // Main thread, all others stopped: checks the slot table against the records and fires what pends.
  // `nothingPends`: every id was handed over and fired, so no event may be left pending.
  void Finish(ThreadContext& context, bool nothingPends);
  // Afterwards: the render part of a summary; `framesRendered` when fired frame by frame, else -1.
  void PrintSummary(int64_t framesRendered) const;
  int64_t ran() const { return ran_.load(std::memory_order_relaxed); }

  // Called by the native callbacks.
  void Ran(Shape shape, int32_t a, int32_t b, int32_t c, const FrameContext* frame);
  void PlainRan();
  void ProbeRan(int32_t probe);

 private:
  static constexpr int32_t kIdBase = 16000;

  void FireId(ThreadContext& context, int32_t id, bool byName = false);
  void Retire(ThreadContext& context, EventRecord& record);
  EventRecord* RecordOf(int32_t token, uint32_t* generation);
  int32_t QueueProbe(ThreadContext& context);

  std::vector<std::unique_ptr<EventProducer>> producers_;
  const int32_t slotBound_;  // no more events than this ever pend at once
  std::unique_ptr<std::atomic<int32_t>[]> plainQueued_, plainRan_;
  std::atomic<int32_t> plainOutstanding_{0};
  std::atomic<int32_t> highestId_{kIdBase - 1};
  std::atomic<bool> followUpsEnabled_{true};
  std::atomic<int64_t> ran_{0}, ranTwice_{0}, wrongId_{0};
  void (*fire_)(int32_t) = nullptr;
  // The firing thread's: ids fired as handed over, other fires (repeats, ids nobody handed over), and fires
  // whose pending event did not run; then what Finish found pending, and its probes of the free slots.
  int64_t fired_ = 0, firedOther_ = 0, lost_ = 0, pendingAtEnd_ = 0;
  struct Probe {
    int32_t id = 0;
    std::atomic<int32_t> runs{0}, firedUnder{0};
  };
  std::unique_ptr<Probe[]> probes_;
  int32_t probeCount_ = 0;
};

}  // namespace quorl::host
