// RenderTraffic: render events of a soak, from the threads that queue them through the five queue
// exports to the render thread that fires them, with a record per event that proves it ran exactly
// once, under the id it was queued for, with the arguments it was given.
//
// Each queuing thread owns an EventProducer: a ring of EventRecords reused only after the event ran, so
// memory stays bounded however long the soak runs. The four shapes that take integers carry a token
// (producer, ring index, generation) as their first argument; the callback finds the record by it. The
// shape without arguments cannot carry one, so those are counted per id on both sides and compared at the
// end. Producers hand their ids to the render thread in bursts of random size, so many events are pending
// at once and the slot table grows and gets holes.
//
// Threads: QueueOne and Flush run on the producer's owner thread (a script thread; the render thread for
// the follow-ups that render work queues). RenderStep runs on the render thread only, Finish on the main
// thread after every other thread stopped. The native callbacks run on whichever thread fires, and find
// the RenderTraffic through a global pointer, so one may exist at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "soak_context.h"

namespace quorl::soak {

enum class Shape : uint8_t { kPlain, kI, kIII, kFrameContextI, kFrameContextIII };
constexpr int kShapeCount = 5;

struct EventRecord {
  // Generation in the high half, times run in the low half: one word, so a reader sees both together.
  std::atomic<uint64_t> word{0};
  std::atomic<int32_t> firedUnder{0};
  // Written by the owner before the queue call; the library's slot mutex publishes them to the firer.
  Shape shape = Shape::kI;
  int32_t b = 0;
  int32_t c = 0;
  bool followUp = false;
  // Owner only.
  bool outstanding = false;
  uint32_t generation = 0;
  int32_t queuedId = 0;
};

// An id handed to the render thread, and the token queued under it (-1 for the shape without one).
struct HandedEvent {
  int32_t id;
  int32_t token;
};

struct EventProducer {
  static constexpr uint32_t kRing = 4096;

  explicit EventProducer(int producerIndex) : index(producerIndex), ring(new EventRecord[kRing]) {}

  const int index;
  std::unique_ptr<EventRecord[]> ring;
  uint32_t cursor = 0;
  std::vector<HandedEvent> backlog;
  size_t publishAt = 1;
  std::mutex mutex;  // guards `published`
  std::vector<HandedEvent> published;
  // Owner only.
  int64_t queued[kShapeCount] = {};
  int64_t busy = 0;  // a queue attempt skipped because the ring had no free record nearby
  int64_t followUpsOnOwnId = 0;
};

struct RenderReport {
  int64_t queued[kShapeCount] = {};
  int64_t firedPublished = 0;
  int64_t firedRandom = 0;
  int64_t followUps = 0;
  int64_t followUpsOnOwnId = 0;
  int64_t pendingAtEnd = 0;
  int64_t probes = 0;
  int32_t highestId = 0;
};

class RenderTraffic {
 public:
  // `producers` rings: one per script thread and one for the render thread's follow-ups (the last).
  explicit RenderTraffic(int producers);
  ~RenderTraffic();
  RenderTraffic(const RenderTraffic&) = delete;
  RenderTraffic& operator=(const RenderTraffic&) = delete;

  EventProducer& producer(int index) { return *producers_[static_cast<size_t>(index)]; }
  EventProducer& followUpProducer() { return *producers_.back(); }

  // Queues one event of a random shape and returns its id; 0 when the producer had no free record or
  // the plain shape's budget was spent.
  int32_t QueueOne(ThreadContext& context, EventProducer& producer);
  // Hands the producer's backlog to the render thread.
  void Flush(EventProducer& producer);

  // Render thread: learns the address to fire through, once.
  void StartRenderThread(ThreadContext& context);
  // Render thread: fires everything handed over so far plus a few random ids; returns the handed count.
  size_t RenderStep(ThreadContext& context);

  // Main thread, all others stopped: checks the table against the model, fires what is pending.
  RenderReport Finish(ThreadContext& context);

  // Called by the native callbacks.
  void Ran(Shape shape, int32_t a, int32_t b, int32_t c, const FrameContext* frame);
  void PlainRan();
  void ProbeRan(int32_t probe);

 private:
  using FireFn = void (*)(int32_t);
  static constexpr int32_t kIdBase = 16000;

  void Fire(ThreadContext& context, int32_t id, bool byName = false);
  void Retire(ThreadContext& context, EventRecord& record);
  EventRecord* RecordOf(int32_t token, uint32_t* generation);
  void NoteId(int32_t id);
  int32_t QueueProbe(ThreadContext& context);

  std::vector<std::unique_ptr<EventProducer>> producers_;
  const int32_t slotBound_;  // no more events than this are ever pending at once
  std::unique_ptr<std::atomic<int32_t>[]> plainQueued_;
  std::unique_ptr<std::atomic<int32_t>[]> plainRan_;
  std::atomic<int32_t> plainOutstanding_{0};
  std::atomic<int32_t> highestId_{kIdBase - 1};
  std::atomic<bool> followUpsEnabled_{true};
  FireFn fire_ = nullptr;
  std::vector<HandedEvent> batch_;  // render thread only
  int64_t firedPublished_ = 0;      // render thread only
  int64_t firedRandom_ = 0;         // render thread only
  struct Probe {
    int32_t id = 0;
    std::atomic<int32_t> runs{0};
    std::atomic<int32_t> firedUnder{0};
  };
  std::unique_ptr<Probe[]> probes_;
  int32_t probeCount_ = 0;
};

}  // namespace quorl::soak
