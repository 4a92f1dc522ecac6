// RenderWork: the render events of a session, from the script thread that queues them to the render
// thread that fires them, with a record per event to prove that each ran exactly once, under the id it
// was queued for, with the arguments it was given.
//
// Every queued piece of work gets a token, the index of its WorkItem in a table allocated up front
// (so records never move and need no lock). The four shapes that take integers carry the token as their
// first argument; the shape without arguments is identified through the item that the render thread is
// firing at that moment, which is only sound because the library runs the closure synchronously inside
// UnityRenderEvent, on the firing thread.
//
// Threads: Queue may be called from any thread (script threads, and the render thread for follow-ups).
// Fire and TakeFollowUps belong to the one render thread. Results are read after all threads stopped.
// One RenderWork may exist at a time, because the native callbacks find it through a global pointer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "bridge_library.h"
#include "invariants.h"

namespace quorl::host {

enum class Shape : uint8_t { kPlain, kI, kIII, kFrameContextI, kFrameContextIII };
constexpr int kShapeCount = 5;
const char* ShapeName(Shape shape);

struct WorkItem {
  Shape shape = Shape::kPlain;
  bool followUp = false;  // queued from inside render work rather than by a script
  int32_t token = 0;
  int32_t frame = 0;
  int32_t eventId = 0;
  int64_t queuedNs = 0;  // taken just before the queue call
  std::atomic<int> runs{0};
  std::atomic<int64_t> ranNs{0};
};

// What a script hands to the engine for its plug-in event call: the id, and the record to verify it.
struct HandedEvent {
  int32_t eventId;
  WorkItem* item;
};

struct RenderStats {
  int64_t queued[kShapeCount] = {};
  int64_t fired = 0;
  int64_t ran = 0;
  int64_t lost = 0;          // fired, but nothing ran
  int64_t ranTwice = 0;      // an item that ran more than once
  int64_t wrongId = 0;       // ran under another id than the one it was queued for
  int64_t badArguments = 0;  // integers or frame context not as queued
  int64_t followUps = 0;
  int64_t followUpsOnOwnId = 0;  // a follow-up that got the very id its parent was running under
  int32_t lowestId = 0;
  int32_t highestId = 0;
  // Queue-to-run latency over all events, in nanoseconds.
  int64_t latencyP50 = 0;
  int64_t latencyP99 = 0;
  int64_t latencyMax = 0;
};

class RenderWork {
 public:
  RenderWork(const BridgeApi& api, Invariants& invariants, size_t capacity);
  ~RenderWork();
  RenderWork(const RenderWork&) = delete;
  RenderWork& operator=(const RenderWork&) = delete;

  // Queues one piece of work through the export of that shape.
  HandedEvent Queue(Shape shape, int32_t frame);

  // Fires an id through the address UnityRenderEventFunc returned, as the engine's plug-in event call
  // does, and checks that exactly the handed item ran.
  void Fire(const HandedEvent& event);

  // Follow-ups queued by render work since the last call; render thread only.
  std::vector<HandedEvent> TakeFollowUps();

  int64_t QueuedCount() const { return nextToken_.load(std::memory_order_relaxed); }
  int64_t RanCount() const { return ran_.load(std::memory_order_relaxed); }

  // Final accounting; call after the render thread has fired everything it was handed.
  RenderStats Finish();

  // Called from the native callbacks on the render thread.
  void Ran(WorkItem* item, bool argumentsHold);

 private:
  WorkItem* Allocate(Shape shape, int32_t frame, bool followUp);
  HandedEvent QueueItem(Shape shape, int32_t frame, bool followUp);

  const BridgeApi& api_;
  Invariants& invariants_;
  using RenderEventFn = void (*)(int32_t);
  RenderEventFn renderEvent_;
  std::unique_ptr<WorkItem[]> items_;
  size_t capacity_;
  std::atomic<int64_t> nextToken_{0};
  std::atomic<int64_t> ran_{0};
  int64_t fired_ = 0;
  int64_t lost_ = 0;
  int64_t wrongId_ = 0;
  int64_t badArguments_ = 0;
  int64_t followUpsOnOwnId_ = 0;
  std::vector<HandedEvent> followUps_;
};

}  // namespace quorl::host
