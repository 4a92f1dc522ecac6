#include "render_traffic.h"

#include <climits>

namespace quorl::host {

namespace {

// Token layout: producer (7 bits), ring index (12 bits), generation (12 bits); always positive.
constexpr int kProducerShift = 24;
constexpr int kIndexShift = 12;
constexpr uint32_t kGenerationMask = (1u << kIndexShift) - 1;
constexpr uint64_t kRunsMask = 0xFFFFFFFFull;
constexpr int32_t kPlainBudget = 512;

RenderTraffic* traffic = nullptr;
thread_local int32_t firingId = 0;

int32_t MakeToken(int producer, uint32_t index, uint32_t generation) {
  return static_cast<int32_t>((static_cast<uint32_t>(producer) << kProducerShift) | (index << kIndexShift) |
                              (generation & kGenerationMask));
}

// x and y of the frame-context shapes are carried along unread by the library; any pointers will do.
void* AnyPointer(Random& random) {
  return random.OneIn(4) ? nullptr : reinterpret_cast<void*>(static_cast<uintptr_t>(random.Next()));
}

// No more events than this are ever pending at once: every ring full, the plain budget spent, and the
// probes of the end checks.
int32_t SlotBound(int producers) {
  return producers * static_cast<int32_t>(EventProducer::kRing) + kPlainBudget + 64;
}

}  // namespace

const char* ShapeName(Shape shape) {
  static const char* const kNames[kShapeCount] = {"plain", "I", "III", "frame-context I",
                                                  "frame-context III"};
  return kNames[static_cast<int>(shape)];
}

RenderTraffic::RenderTraffic(int producers)
    : slotBound_(SlotBound(producers)),
      plainQueued_(new std::atomic<int32_t>[static_cast<size_t>(slotBound_)]()),
      plainRan_(new std::atomic<int32_t>[static_cast<size_t>(slotBound_)]()) {
  for (int i = 0; i < producers; ++i)
    producers_.push_back(std::make_unique<EventProducer>(i));
  traffic = this;
}

RenderTraffic::~RenderTraffic() {
  traffic = nullptr;
}

void RenderTraffic::Retire(ThreadContext& context, EventRecord& record) {
  const int32_t firedUnder = record.firedUnder.load(std::memory_order_relaxed);
  if (!EXPECT(context, kEventArguments, firedUnder == record.queuedId, "%s event of id %d ran under id %d",
              ShapeName(record.shape), record.queuedId, firedUnder)) {
    wrongId_.fetch_add(1, std::memory_order_relaxed);
  }
  record.outstanding = false;
}

int32_t RenderTraffic::Queue(ThreadContext& context, EventProducer& producer) {
  Random& random = context.random;
  const auto shape = static_cast<Shape>(random.Below(kShapeCount));
  int32_t id = 0;
  int32_t token = -1;
  if (shape == Shape::kPlain) {
    if (plainOutstanding_.load(std::memory_order_relaxed) >= kPlainBudget) return 0;
    plainOutstanding_.fetch_add(1, std::memory_order_relaxed);
    id = CALL(context, QueueGLEvent)([] { traffic->PlainRan(); });
  } else {
    // A record is free once its event ran; look a few places ahead so one slow event blocks nothing.
    EventRecord* record = nullptr;
    uint32_t index = 0;
    for (int probe = 0; probe < 4 && record == nullptr; ++probe) {
      index = producer.cursor;
      producer.cursor = (producer.cursor + 1) % EventProducer::kRing;
      EventRecord& candidate = producer.ring[index];
      if (!candidate.outstanding) {
        record = &candidate;
      } else if ((candidate.word.load(std::memory_order_acquire) & kRunsMask) != 0) {
        Retire(context, candidate);
        record = &candidate;
      }
    }
    if (record == nullptr) return 0;
    record->generation = (record->generation + 1) & kGenerationMask;
    record->word.store(static_cast<uint64_t>(record->generation) << 32, std::memory_order_release);
    record->firedUnder.store(0, std::memory_order_relaxed);
    record->shape = shape;
    record->b = random.AnyInt();
    record->c = random.AnyInt();
    // Some render work queues more from inside its own run, as render code that defers its cleanup does.
    record->followUp = context.role == Role::kScript && random.OneIn(16);
    token = MakeToken(producer.index, index, record->generation);
    if (shape == Shape::kI) {
      id = CALL(context, QueueGLEventI)([](int32_t a) { traffic->Ran(Shape::kI, a, 0, 0, nullptr); }, token);
    } else if (shape == Shape::kIII) {
      id = CALL(context, QueueGLEventIII)(
          [](int32_t a, int32_t b, int32_t c) { traffic->Ran(Shape::kIII, a, b, c, nullptr); }, token,
          record->b, record->c);
    } else if (shape == Shape::kFrameContextI) {
      id = CALL(context, QueueGLEventPrepFrameContextI)(
          [](int32_t a, const FrameContext* f) { traffic->Ran(Shape::kFrameContextI, a, 0, 0, f); }, token,
          AnyPointer(random), AnyPointer(random));
    } else {
      id = CALL(context, QueueGLEventPrepFrameContextIII)(
          [](int32_t a, int32_t b, int32_t c, const FrameContext* f) {
            traffic->Ran(Shape::kFrameContextIII, a, b, c, f);
          },
          token, record->b, record->c, AnyPointer(random), AnyPointer(random));
    }
    record->queuedId = id;
    record->outstanding = true;
  }
  ++producer.queued[static_cast<int>(shape)];

  const bool inBounds = id >= kIdBase && id - kIdBase < slotBound_;
  EXPECT(context, kSlotReuse, inBounds, "a %s event got id %d, outside 16000 + [0, %d)", ShapeName(shape), id,
         slotBound_);
  if (!inBounds) return id;
  int32_t highest = highestId_.load(std::memory_order_relaxed);
  while (id > highest && !highestId_.compare_exchange_weak(highest, id, std::memory_order_relaxed)) {
  }
  if (shape == Shape::kPlain) plainQueued_[id - kIdBase].fetch_add(1, std::memory_order_relaxed);
  producer.backlog.push_back(HandedEvent{id, token});
  return id;
}

void RenderTraffic::HandOver(EventProducer& producer, Random* bursts) {
  if (bursts != nullptr && producer.backlog.size() < producer.handOverAt) return;
  std::lock_guard<std::mutex> guard(producer.mutex);
  producer.handedOver.insert(producer.handedOver.end(), producer.backlog.begin(), producer.backlog.end());
  producer.backlog.clear();
  // Mostly small hand-overs; now and then a long burst, so many events pend at once.
  if (bursts != nullptr)
    producer.handOverAt = 1 + (bursts->OneIn(16) ? bursts->Below(1500) : bursts->Below(8));
}

std::vector<HandedEvent> RenderTraffic::TakeHandedOver() {
  std::vector<HandedEvent> batch;
  for (auto& producer : producers_) {
    std::lock_guard<std::mutex> guard(producer->mutex);
    batch.insert(batch.end(), producer->handedOver.begin(), producer->handedOver.end());
    producer->handedOver.clear();
  }
  return batch;
}

void RenderTraffic::StartFiring(ThreadContext& context) {
  // CheckConstants checks that this is UnityRenderEvent's address.
  fire_ = reinterpret_cast<void (*)(int32_t)>(CALL(context, UnityRenderEventFunc)());
}

void RenderTraffic::FireId(ThreadContext& context, int32_t id, bool byName) {
  context.Count(kExport_UnityRenderEvent);
  firingId = id;
  (byName ? context.api.UnityRenderEvent : fire_)(id);  // mostly as the engine's plug-in event call does
  firingId = 0;
}

void RenderTraffic::Fire(ThreadContext& context, const HandedEvent& event) {
  uint32_t generation = 0;
  EventRecord* record = RecordOf(event.token, &generation);
  FireId(context, event.id, context.random.OneIn(64));
  ++fired_;
  if (record == nullptr) return;  // the plain shape is counted per id, and checked at the end
  // A record whose generation moved on was retired by its owner, which happens only after it ran.
  const uint64_t word = record->word.load(std::memory_order_acquire);
  if (!EXPECT(context, kFireRunsPending, (word >> 32) != generation || (word & kRunsMask) != 0,
              "fired id %d, and its %s event did not run", event.id, ShapeName(record->shape))) {
    ++lost_;
  }
}

size_t RenderTraffic::RenderStep(ThreadContext& context) {
  Random& random = context.random;
  const std::vector<HandedEvent> batch = TakeHandedOver();
  for (const HandedEvent& handed : batch) {
    Fire(context, handed);
    if (random.OneIn(16)) {  // a repeat: runs nothing, or whatever took the slot since
      FireId(context, handed.id);
      ++firedOther_;
    }
  }
  // Ids nobody handed over: below the base, in the table (half of them), and far beyond it.
  const uint32_t table = static_cast<uint32_t>(highestId_.load(std::memory_order_relaxed) - kIdBase + 2);
  for (int i = random.Below(3); i > 0; --i, ++firedOther_) {
    const int32_t ids[] = {kIdBase - 1,           INT_MIN, INT_MAX, -1 - random.Below(99999),
                           random.Below(kIdBase), 1 << 30};
    FireId(context, random.OneIn(2) ? kIdBase + random.Below(table) : random.Pick(ids), random.OneIn(8));
  }
  return batch.size();
}

EventRecord* RenderTraffic::RecordOf(int32_t token, uint32_t* generation) {
  if (token < 0) return nullptr;
  const auto bits = static_cast<uint32_t>(token);
  const uint32_t producer = bits >> kProducerShift;
  if (producer >= producers_.size()) return nullptr;
  *generation = bits & kGenerationMask;
  return &producers_[producer]->ring[(bits >> kIndexShift) & (EventProducer::kRing - 1)];
}

void RenderTraffic::Ran(Shape shape, int32_t a, int32_t b, int32_t c, const FrameContext* frame) {
  ThreadContext& context = CurrentContext();
  const int32_t firing = firingId;
  uint32_t generation = 0;
  EventRecord* record = RecordOf(a, &generation);
  if (record == nullptr) {
    FAIL(context, kEventArguments, "a %s event ran under id %d with a token never queued: %d",
         ShapeName(shape), firing, a);
    return;
  }
  const uint64_t before = record->word.load(std::memory_order_acquire);
  if ((before >> 32) != generation) {
    ranTwice_.fetch_add(1, std::memory_order_relaxed);
    FAIL(context, kEventRunsOnce, "a %s event with token %d ran under id %d after it was retired",
         ShapeName(shape), a, firing);
    return;
  }
  const bool hasBc = shape == Shape::kIII || shape == Shape::kFrameContextIII;
  EXPECT(context, kEventArguments, record->shape == shape && (!hasBc || (b == record->b && c == record->c)),
         "token %d under id %d: expected %s(%d, %d), saw %s(%d, %d)", a, firing, ShapeName(record->shape),
         record->b, record->c, ShapeName(shape), b, c);
  if (shape == Shape::kFrameContextI || shape == Shape::kFrameContextIII) {
    const FrameContext seen = frame != nullptr ? *frame : FrameContext{0, 1, 1, 1};
    EXPECT(context, kFrameContext,
           seen.structSize == 24 && !seen.reserved0 && !seen.reserved1 && !seen.reserved2,
           "%s{%u, %u, %llu, %llu}", frame == nullptr ? "null, " : "", seen.structSize, seen.reserved0,
           static_cast<unsigned long long>(seen.reserved1), static_cast<unsigned long long>(seen.reserved2));
  }
  const bool followUp = record->followUp;
  record->firedUnder.store(firing, std::memory_order_relaxed);
  ran_.fetch_add(1, std::memory_order_relaxed);
  // The last touch of the record: once the run is counted, its owner may reuse it.
  const uint64_t old = record->word.fetch_add(1, std::memory_order_acq_rel);
  if (!EXPECT(context, kEventRunsOnce, old == (static_cast<uint64_t>(generation) << 32),
              "a %s event with token %d ran again under id %d", ShapeName(shape), a, firing)) {
    ranTwice_.fetch_add(1, std::memory_order_relaxed);
  }

  // Render work may queue more render work: the library does not hold its lock while the work runs, and
  // with no lower slot free the follow-up gets the very id that is running.
  if (followUp && context.role == Role::kRender && followUpsEnabled_.load(std::memory_order_relaxed)) {
    Queue(context, *producers_.back());
    HandOver(*producers_.back());
  }
}

void RenderTraffic::PlainRan() {
  ThreadContext& context = CurrentContext();
  const int32_t firing = firingId;
  plainOutstanding_.fetch_sub(1, std::memory_order_relaxed);
  ran_.fetch_add(1, std::memory_order_relaxed);
  if (EXPECT(context, kEventArguments, firing >= kIdBase && firing - kIdBase < slotBound_,
             "a plain event ran under id %d, which was never handed out", firing)) {
    plainRan_[firing - kIdBase].fetch_add(1, std::memory_order_relaxed);
  }
}

void RenderTraffic::ProbeRan(int32_t probe) {
  ThreadContext& context = CurrentContext();
  if (EXPECT(context, kEventArguments, probe >= 0 && probe < probeCount_, "a probe ran with %d", probe)) {
    probes_[probe].firedUnder.store(firingId, std::memory_order_relaxed);
    probes_[probe].runs.fetch_add(1, std::memory_order_relaxed);
  }
}

}  // namespace quorl::host
