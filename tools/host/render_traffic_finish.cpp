// The end checks of RenderTraffic: with every other thread stopped, the slot table must hold exactly the
// pending events, hand out its free slots lowest first, and run everything once when fired whole.
#include <cstdio>

#include "render_traffic.h"

namespace quorl::host {

namespace {

constexpr uint64_t kRunsMask = 0xFFFFFFFFull;

RenderTraffic* finishing = nullptr;
void OnProbe(int32_t probe) {
  finishing->ProbeRan(probe);
}

}  // namespace

int32_t RenderTraffic::QueueProbe(ThreadContext& context) {
  finishing = this;
  const int32_t probe = probeCount_++;
  const int32_t id = CALL(context, QueueGLEventI)(&OnProbe, probe);
  probes_[probe].id = id;
  return id;
}

void RenderTraffic::Finish(ThreadContext& context, bool nothingPends) {
  followUpsEnabled_.store(false, std::memory_order_relaxed);
  if (fire_ == nullptr) StartFiring(context);
  const int32_t highest = highestId_.load(std::memory_order_relaxed);

  // What the records say is pending, by slot.
  const auto tableSize = static_cast<size_t>(highest - kIdBase + 1);
  std::vector<int8_t> pending(tableSize, 0);
  auto markPending = [&](int32_t id, const char* what) {
    const size_t slot = static_cast<size_t>(id - kIdBase);
    EXPECT(context, kSlotReuse, pending[slot] == 0, "two events pend under id %d (the second a %s)", id,
           what);
    pending[slot] = 1;
    ++pendingAtEnd_;
  };
  for (auto& producer : producers_) {
    for (uint32_t i = 0; i < EventProducer::kRing; ++i) {
      EventRecord& record = producer->ring[i];
      if (record.outstanding && (record.word.load(std::memory_order_acquire) & kRunsMask) == 0) {
        markPending(record.queuedId, ShapeName(record.shape));
      }
    }
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    const int32_t difference = plainQueued_[slot].load() - plainRan_[slot].load();
    EXPECT(context, kEventRunsOnce, difference == 0 || difference == 1,
           "id %d: %d plain events queued, %d ran", kIdBase + static_cast<int32_t>(slot),
           plainQueued_[slot].load(), plainRan_[slot].load());
    if (difference == 1) markPending(kIdBase + static_cast<int32_t>(slot), "plain");
  }
  EXPECT(context, kEventRunsOnce, !nothingPends || pendingAtEnd_ == 0,
         "%lld events never ran, though every id was handed over and fired",
         static_cast<long long>(pendingAtEnd_));

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
    EXPECT(context, kSlotReuse, id == want || reported++ >= 3,
           "with %lld events pending, a new event got id %d where the lowest free id is %d",
           static_cast<long long>(pendingAtEnd_), id, want);
  }

  // Fire the whole table once: every pending event and every probe must run, nothing else.
  for (int32_t id = kIdBase; id <= highest + 1; ++id)
    FireId(context, id);
  int64_t neverRan = 0;
  for (auto& producer : producers_) {
    for (uint32_t i = 0; i < EventProducer::kRing; ++i) {
      EventRecord& record = producer->ring[i];
      if (!record.outstanding) continue;
      if ((record.word.load(std::memory_order_acquire) & kRunsMask) != 0) {
        Retire(context, record);
      } else if (neverRan++ < 3) {
        FAIL(context, kEventRunsOnce,
             "the %s event queued under id %d never ran, even after the whole table was fired",
             ShapeName(record.shape), record.queuedId);
      }
    }
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    if (plainQueued_[slot].load() != plainRan_[slot].load() && neverRan++ < 3) {
      FAIL(context, kEventRunsOnce, "id %d: %d plain events queued, %d ran, after the whole table was fired",
           kIdBase + static_cast<int32_t>(slot), plainQueued_[slot].load(), plainRan_[slot].load());
    }
  }
  EXPECT(context, kEventRunsOnce, neverRan == 0, "%lld events never ran after the whole table was fired",
         static_cast<long long>(neverRan));
  for (int32_t p = 0; p < probeCount_; ++p) {
    const Probe& probe = probes_[p];
    EXPECT(context, kEventRunsOnce, probe.runs.load() == 1 && probe.firedUnder.load() == probe.id,
           "the probe queued under id %d ran %d times, last under id %d", probe.id, probe.runs.load(),
           probe.firedUnder.load());
  }

  // Now nothing is pending: the next event takes the first slot.
  const int32_t last = probeCount_;
  const int32_t first = QueueProbe(context);
  EXPECT(context, kSlotReuse, first == kIdBase, "with nothing pending a new event got id %d", first);
  FireId(context, first);
  EXPECT(context, kEventRunsOnce, probes_[last].runs.load() == 1, "the last probe ran %d times",
         probes_[last].runs.load());
}

void RenderTraffic::PrintSummary(int64_t framesRendered) const {
  int64_t queued[kShapeCount + 1] = {}, followUpsOnOwnId = 0;
  for (const auto& producer : producers_) {
    for (int shape = 0; shape < kShapeCount; ++shape)
      queued[shape] += producer->queued[shape];
    followUpsOnOwnId += producer->followUpsOnOwnId;
  }
  std::string shapes;
  for (int shape = 0; shape < kShapeCount; ++shape) {
    queued[kShapeCount] += queued[shape];
    shapes += (shape == 0 ? "" : " | ") + std::string(ShapeName(static_cast<Shape>(shape))) + " " +
              Grouped(queued[shape]);
  }
  int64_t followUps = 0;
  for (const int64_t count : producers_.back()->queued)
    followUps += count;
  std::printf("Render events     %s queued, %s fired, %s ran: lost %s, ran twice %s, under a wrong id %s\n",
              Grouped(queued[kShapeCount]).c_str(), Grouped(fired_).c_str(), Grouped(ran_.load()).c_str(),
              Grouped(lost_).c_str(), Grouped(ranTwice_.load()).c_str(), Grouped(wrongId_.load()).c_str());
  std::printf(
      "                  %s\n                  %s follow-ups queued from inside render work (%s got the id "
      "they ran under)\n",
      shapes.c_str(), Grouped(followUps).c_str(), Grouped(followUpsOnOwnId).c_str());
  std::printf("                  ids 16000..%d (slots are reused as they free up), %s\n", highestId_.load(),
              framesRendered >= 0 ? (Grouped(framesRendered) + " frames rendered").c_str()
                                  : (Grouped(firedOther_) + " other fires").c_str());
  std::printf("                  %s pending at the end, %s probes of the free slots\n",
              Grouped(pendingAtEnd_).c_str(), Grouped(probeCount_).c_str());
}

}  // namespace quorl::host
