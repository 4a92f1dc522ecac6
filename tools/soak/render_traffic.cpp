#include "render_traffic.h"

#include <climits>

namespace quorl::soak {

namespace {

// Token layout: producer (5 bits), ring index (12 bits), generation (14 bits); always positive.
constexpr int kProducerShift = 26;
constexpr int kIndexShift = 14;
constexpr uint32_t kGenerationMask = (1u << kIndexShift) - 1;
constexpr uint64_t kRunsMask = 0xFFFFFFFFull;
constexpr int32_t kPlainBudget = 512;

RenderTraffic* traffic = nullptr;
thread_local int32_t firingId = 0;

int32_t MakeToken(int producer, uint32_t index, uint32_t generation) {
  return static_cast<int32_t>((static_cast<uint32_t>(producer) << kProducerShift) | (index << kIndexShift) |
                              (generation & kGenerationMask));
}

void OnPlain() {
  traffic->PlainRan();
}
void OnI(int32_t a) {
  traffic->Ran(Shape::kI, a, 0, 0, nullptr);
}
void OnIII(int32_t a, int32_t b, int32_t c) {
  traffic->Ran(Shape::kIII, a, b, c, nullptr);
}
void OnFrameContextI(int32_t a, const FrameContext* frame) {
  traffic->Ran(Shape::kFrameContextI, a, 0, 0, frame);
}
void OnFrameContextIII(int32_t a, int32_t b, int32_t c, const FrameContext* frame) {
  traffic->Ran(Shape::kFrameContextIII, a, b, c, frame);
}
void OnProbe(int32_t probe) {
  traffic->ProbeRan(probe);
}

const char* ShapeName(Shape shape) {
  static const char* const names[kShapeCount] = {"QueueGLEvent", "QueueGLEventI", "QueueGLEventIII",
                                                 "QueueGLEventPrepFrameContextI",
                                                 "QueueGLEventPrepFrameContextIII"};
  return names[static_cast<int>(shape)];
}

void* AnyPointer(Random& random) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(random.Next()));
}

// No more events than this are ever pending at once: every ring full, the plain budget spent, and the
// probes of the end checks.
int32_t SlotBound(int producers) {
  return producers * static_cast<int32_t>(EventProducer::kRing) + kPlainBudget + 64;
}

}  // namespace

RenderTraffic::RenderTraffic(int producers)
    : slotBound_(SlotBound(producers)),
      plainQueued_(new std::atomic<int32_t>[static_cast<size_t>(SlotBound(producers))]()),
      plainRan_(new std::atomic<int32_t>[static_cast<size_t>(SlotBound(producers))]()) {
  for (int i = 0; i < producers; ++i)
    producers_.push_back(std::make_unique<EventProducer>(i));
  traffic = this;
}

RenderTraffic::~RenderTraffic() {
  traffic = nullptr;
}

void RenderTraffic::NoteId(int32_t id) {
  int32_t seen = highestId_.load(std::memory_order_relaxed);
  while (id > seen && !highestId_.compare_exchange_weak(seen, id, std::memory_order_relaxed)) {
  }
}

void RenderTraffic::Retire(ThreadContext& context, EventRecord& record) {
  const int32_t firedUnder = record.firedUnder.load(std::memory_order_relaxed);
  context.Expect(Check::kEventArguments, firedUnder == record.queuedId, [&] {
    return Printf("%s event queued under id %d ran under id %d", ShapeName(record.shape), record.queuedId,
                  firedUnder);
  });
  record.outstanding = false;
}

int32_t RenderTraffic::QueueOne(ThreadContext& context, EventProducer& producer) {
  Random& random = context.random();
  const auto shape = static_cast<Shape>(random.Below(kShapeCount));
  int32_t id = 0;
  int32_t token = -1;

  if (shape == Shape::kPlain) {
    if (plainOutstanding_.load(std::memory_order_relaxed) >= kPlainBudget) return 0;
    plainOutstanding_.fetch_add(1, std::memory_order_relaxed);
    id = SOAK_CALL(context, QueueGLEvent)(&OnPlain);
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
    if (record == nullptr) {
      ++producer.busy;
      return 0;
    }
    record->generation = (record->generation + 1) & kGenerationMask;
    record->word.store(static_cast<uint64_t>(record->generation) << 32, std::memory_order_release);
    record->firedUnder.store(0, std::memory_order_relaxed);
    record->shape = shape;
    record->b = random.AnyInt();
    record->c = random.AnyInt();
    record->followUp = context.kind() == ThreadKind::kScript && random.OneIn(32);
    token = MakeToken(producer.index, index, record->generation);
    switch (shape) {
      case Shape::kI:
        id = SOAK_CALL(context, QueueGLEventI)(&OnI, token);
        break;
      case Shape::kIII:
        id = SOAK_CALL(context, QueueGLEventIII)(&OnIII, token, record->b, record->c);
        break;
      case Shape::kFrameContextI:
        id = SOAK_CALL(context, QueueGLEventPrepFrameContextI)(
            &OnFrameContextI, token, AnyPointer(random), random.OneIn(4) ? nullptr : AnyPointer(random));
        break;
      case Shape::kFrameContextIII:
        id = SOAK_CALL(context, QueueGLEventPrepFrameContextIII)(
            &OnFrameContextIII, token, record->b, record->c, random.OneIn(4) ? nullptr : AnyPointer(random),
            AnyPointer(random));
        break;
      case Shape::kPlain:
        break;
    }
    record->queuedId = id;
    record->outstanding = true;
  }
  ++producer.queued[static_cast<int>(shape)];

  const bool inBounds = id >= kIdBase && id - kIdBase < slotBound_;
  context.Expect(Check::kSlotReuse, inBounds, [&] {
    return Printf("%s returned id %d, but never more than %d events were pending at once", ShapeName(shape),
                  id, slotBound_);
  });
  if (!inBounds) return id;
  NoteId(id);
  if (shape == Shape::kPlain) plainQueued_[id - kIdBase].fetch_add(1, std::memory_order_relaxed);

  producer.backlog.push_back(HandedEvent{id, token});
  if (producer.backlog.size() >= producer.publishAt) {
    Flush(producer);
    // Mostly small hand-overs; now and then a long burst, so many events pend at once.
    producer.publishAt = 1 + (random.OneIn(16) ? random.Below(1500) : random.Below(8));
  }
  return id;
}

void RenderTraffic::Flush(EventProducer& producer) {
  if (producer.backlog.empty()) return;
  std::lock_guard<std::mutex> guard(producer.mutex);
  producer.published.insert(producer.published.end(), producer.backlog.begin(), producer.backlog.end());
  producer.backlog.clear();
}

void RenderTraffic::StartRenderThread(ThreadContext& context) {
  const intptr_t address = SOAK_CALL(context, UnityRenderEventFunc)();
  context.Expect(
      Check::kRenderFuncAddress, address == reinterpret_cast<intptr_t>(context.api().UnityRenderEvent), [&] {
        return Printf("expected %p, saw %p", reinterpret_cast<void*>(context.api().UnityRenderEvent),
                      reinterpret_cast<void*>(address));
      });
  fire_ = reinterpret_cast<FireFn>(address);
}

void RenderTraffic::Fire(ThreadContext& context, int32_t id, bool byName) {
  context.Count(kExport_UnityRenderEvent);
  firingId = id;
  if (byName) {
    context.api().UnityRenderEvent(id);
  } else {
    fire_(id);
  }
  firingId = 0;
}

EventRecord* RenderTraffic::RecordOf(int32_t token, uint32_t* generation) {
  if (token < 0) return nullptr;
  const auto bits = static_cast<uint32_t>(token);
  const uint32_t producer = bits >> kProducerShift;
  if (producer >= producers_.size()) return nullptr;
  *generation = bits & kGenerationMask;
  return &producers_[producer]->ring[(bits >> kIndexShift) & (EventProducer::kRing - 1)];
}

size_t RenderTraffic::RenderStep(ThreadContext& context) {
  Random& random = context.random();
  batch_.clear();
  for (auto& producer : producers_) {
    std::lock_guard<std::mutex> guard(producer->mutex);
    batch_.insert(batch_.end(), producer->published.begin(), producer->published.end());
    producer->published.clear();
  }
  for (const HandedEvent& handed : batch_) {
    Fire(context, handed.id, random.OneIn(64));
    ++firedPublished_;
    uint32_t generation = 0;
    EventRecord* record = RecordOf(handed.token, &generation);
    if (record != nullptr) {
      // A record whose generation moved on was retired by its owner, which happens only after it ran.
      const uint64_t word = record->word.load(std::memory_order_acquire);
      context.Expect(Check::kFireRunsPending, (word >> 32) != generation || (word & kRunsMask) != 0, [&] {
        return Printf("fired id %d, but the event queued under it (token %d) did not run", handed.id,
                      handed.token);
      });
    }
    if (random.OneIn(16)) {
      Fire(context, handed.id);  // a repeat: runs nothing, or whatever took the slot since
      ++firedRandom_;
    }
  }

  // Ids nobody handed over: below the base, in the table, and far beyond it.
  const int32_t highest = highestId_.load(std::memory_order_relaxed);
  const int randomFires = static_cast<int>(random.Below(3));
  for (int i = 0; i < randomFires; ++i) {
    int32_t id = 0;
    switch (random.Below(8)) {
      case 0:
        id = kIdBase - 1;
        break;
      case 1:
        id = random.OneIn(2) ? INT_MIN : -1 - static_cast<int32_t>(random.Below(100000));
        break;
      case 2:
        id = static_cast<int32_t>(random.Below(kIdBase));
        break;
      case 3:
        id = random.OneIn(2) ? INT_MAX : kIdBase + slotBound_ + static_cast<int32_t>(random.Below(1 << 20));
        break;
      default:
        id = kIdBase + static_cast<int32_t>(random.Below(static_cast<uint32_t>(highest - kIdBase + 2)));
        break;
    }
    Fire(context, id, random.OneIn(8));
    ++firedRandom_;
  }
  return batch_.size();
}

void RenderTraffic::Ran(Shape shape, int32_t a, int32_t b, int32_t c, const FrameContext* frame) {
  ThreadContext& context = CurrentContext();
  const int32_t firing = firingId;
  uint32_t generation = 0;
  EventRecord* record = RecordOf(a, &generation);
  if (record == nullptr) {
    context.Fail(Check::kEventArguments,
                 Printf("a %s event ran under id %d with first argument %d, which no producer queued",
                        ShapeName(shape), firing, a));
    return;
  }
  const uint64_t before = record->word.load(std::memory_order_acquire);
  if ((before >> 32) != generation) {
    context.Fail(Check::kEventRunsOnce,
                 Printf("a %s event with token %d ran under id %d after its record was retired (ran twice?)",
                        ShapeName(shape), a, firing));
    return;
  }
  const bool hasBc = shape == Shape::kIII || shape == Shape::kFrameContextIII;
  context.Expect(Check::kEventArguments,
                 record->shape == shape && (!hasBc || (b == record->b && c == record->c)), [&] {
                   return Printf("token %d under id %d: expected %s(%d, %d), saw %s(%d, %d)", a, firing,
                                 ShapeName(record->shape), record->b, record->c, ShapeName(shape), b, c);
                 });
  if (shape == Shape::kFrameContextI || shape == Shape::kFrameContextIII) {
    context.Expect(Check::kFrameContext,
                   frame != nullptr && frame->structSize == 24 && frame->reserved0 == 0 &&
                       frame->reserved1 == 0 && frame->reserved2 == 0,
                   [&] {
                     if (frame == nullptr) return std::string("expected a frame context, saw null");
                     return Printf("expected {24, 0, 0, 0}, saw {%u, %u, %llu, %llu}", frame->structSize,
                                   frame->reserved0, static_cast<unsigned long long>(frame->reserved1),
                                   static_cast<unsigned long long>(frame->reserved2));
                   });
  }
  const bool followUp = record->followUp;
  record->firedUnder.store(firing, std::memory_order_relaxed);
  // The last touch of the record: once the run is counted, its owner may reuse it.
  const uint64_t old = record->word.fetch_add(1, std::memory_order_acq_rel);
  context.Expect(Check::kEventRunsOnce, old == (static_cast<uint64_t>(generation) << 32), [&] {
    return Printf("a %s event with token %d ran again under id %d (%llu runs before)", ShapeName(shape), a,
                  firing, static_cast<unsigned long long>(old & kRunsMask));
  });

  // Render work may queue more render work; the mutex is not held while it runs.
  if (followUp && context.kind() == ThreadKind::kRender &&
      followUpsEnabled_.load(std::memory_order_relaxed)) {
    EventProducer& own = followUpProducer();
    if (QueueOne(context, own) == firing) ++own.followUpsOnOwnId;
    Flush(own);
  }
}

void RenderTraffic::PlainRan() {
  ThreadContext& context = CurrentContext();
  const int32_t firing = firingId;
  plainOutstanding_.fetch_sub(1, std::memory_order_relaxed);
  const bool inBounds = firing >= kIdBase && firing - kIdBase < slotBound_;
  if (!context.Expect(Check::kEventArguments, inBounds, [&] {
        return Printf("a QueueGLEvent event ran under id %d, which was never handed out", firing);
      }))
    return;
  plainRan_[firing - kIdBase].fetch_add(1, std::memory_order_relaxed);
}

void RenderTraffic::ProbeRan(int32_t probe) {
  ThreadContext& context = CurrentContext();
  if (!context.Expect(Check::kEventArguments, probe >= 0 && probe < probeCount_,
                      [&] { return Printf("a probe event ran with argument %d, never queued", probe); }))
    return;
  probes_[probe].firedUnder.store(firingId, std::memory_order_relaxed);
  probes_[probe].runs.fetch_add(1, std::memory_order_relaxed);
}

int32_t RenderTraffic::QueueProbe(ThreadContext& context) {
  const int32_t probe = probeCount_++;
  const int32_t id = SOAK_CALL(context, QueueGLEventI)(&OnProbe, probe);
  probes_[probe].id = id;
  return id;
}

RenderReport RenderTraffic::Finish(ThreadContext& context) {
  RenderReport report;
  followUpsEnabled_.store(false, std::memory_order_relaxed);
  if (fire_ == nullptr) fire_ = reinterpret_cast<FireFn>(SOAK_CALL(context, UnityRenderEventFunc)());
  const int32_t highest = highestId_.load(std::memory_order_relaxed);
  report.highestId = highest;

  // What the model says is pending, by slot.
  const auto tableSize = static_cast<size_t>(highest - kIdBase + 1);
  std::vector<int8_t> pending(tableSize, 0);
  auto markPending = [&](int32_t id, const char* what) {
    const size_t slot = static_cast<size_t>(id - kIdBase);
    context.Expect(Check::kSlotReuse, pending[slot] == 0,
                   [&] { return Printf("two events are pending under id %d (the second a %s)", id, what); });
    pending[slot] = 1;
    ++report.pendingAtEnd;
  };
  for (auto& producer : producers_) {
    for (uint32_t i = 0; i < EventProducer::kRing; ++i) {
      EventRecord& record = producer->ring[i];
      if (record.outstanding && (record.word.load(std::memory_order_acquire) & kRunsMask) == 0) {
        markPending(record.queuedId, ShapeName(record.shape));
      }
    }
    for (int s = 0; s < kShapeCount; ++s)
      report.queued[s] += producer->queued[s];
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    const int32_t difference = plainQueued_[slot].load() - plainRan_[slot].load();
    context.Expect(Check::kEventRunsOnce, difference == 0 || difference == 1, [&] {
      return Printf("id %d: %d QueueGLEvent events queued, %d ran", kIdBase + static_cast<int32_t>(slot),
                    plainQueued_[slot].load(), plainRan_[slot].load());
    });
    if (difference == 1) markPending(kIdBase + static_cast<int32_t>(slot), "QueueGLEvent");
  }

  // Every free slot must be handed out again, lowest first, and only then the table grows by one.
  std::vector<int32_t> expected;
  for (size_t slot = 0; slot < tableSize; ++slot) {
    if (pending[slot] == 0) expected.push_back(kIdBase + static_cast<int32_t>(slot));
  }
  expected.push_back(highest + 1);
  probes_.reset(new Probe[expected.size() + 1]);
  int reported = 0;
  for (int32_t want : expected) {
    const int32_t id = QueueProbe(context);
    if (id != want && reported++ < 3) {
      context.Fail(Check::kSlotReuse,
                   Printf("with %lld events pending, a new event got id %d where the lowest free id is %d",
                          static_cast<long long>(report.pendingAtEnd), id, want));
    } else {
      context.Expect(Check::kSlotReuse, true, [] { return std::string(); });
    }
  }

  // Fire the whole table once: every pending event and every probe must run, nothing else.
  for (int32_t id = kIdBase; id <= highest + 1; ++id)
    Fire(context, id);

  int64_t neverRan = 0;
  for (auto& producer : producers_) {
    for (uint32_t i = 0; i < EventProducer::kRing; ++i) {
      EventRecord& record = producer->ring[i];
      if (!record.outstanding) continue;
      const uint64_t runs = record.word.load(std::memory_order_acquire) & kRunsMask;
      if (runs == 0) {
        if (neverRan++ < 3) {
          context.Fail(
              Check::kEventRunsOnce,
              Printf("the %s event queued under id %d never ran, even after the whole table was fired",
                     ShapeName(record.shape), record.queuedId));
        }
        continue;
      }
      Retire(context, record);
    }
    report.followUpsOnOwnId += producer->followUpsOnOwnId;
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    if (plainQueued_[slot].load() != plainRan_[slot].load() && neverRan++ < 3) {
      context.Fail(
          Check::kEventRunsOnce,
          Printf("id %d: %d QueueGLEvent events queued, %d ran, after the whole table was fired",
                 kIdBase + static_cast<int32_t>(slot), plainQueued_[slot].load(), plainRan_[slot].load()));
    }
  }
  context.Expect(Check::kEventRunsOnce, neverRan == 0, [&] {
    return Printf("%lld events never ran after the whole table was fired", static_cast<long long>(neverRan));
  });
  for (int32_t p = 0; p < probeCount_; ++p) {
    const Probe& probe = probes_[p];
    context.Expect(Check::kEventRunsOnce, probe.runs.load() == 1 && probe.firedUnder.load() == probe.id, [&] {
      return Printf("the probe queued under id %d ran %d times, last under id %d", probe.id,
                    probe.runs.load(), probe.firedUnder.load());
    });
  }

  // Now nothing is pending: the next event takes the first slot.
  const int32_t last = probeCount_;
  const int32_t first = QueueProbe(context);
  context.Expect(Check::kSlotReuse, first == kIdBase, [&] {
    return Printf("with nothing pending a new event got id %d, expected %d", first, kIdBase);
  });
  Fire(context, first);
  context.Expect(Check::kEventRunsOnce, probes_[last].runs.load() == 1,
                 [&] { return Printf("the last probe ran %d times", probes_[last].runs.load()); });

  report.probes = probeCount_;
  report.firedPublished = firedPublished_;
  report.firedRandom = firedRandom_;
  for (int64_t queued : followUpProducer().queued)
    report.followUps += queued;
  return report;
}

}  // namespace quorl::soak
