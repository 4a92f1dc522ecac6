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

RenderReport RenderTraffic::Finish(ThreadContext& context, bool nothingPends) {
  RenderReport report;
  followUpsEnabled_.store(false, std::memory_order_relaxed);
  if (fire_ == nullptr) StartFiring(context);
  const int32_t highest = highestId_.load(std::memory_order_relaxed);
  report.highestId = highest;

  // What the records say is pending, by slot.
  const auto tableSize = static_cast<size_t>(highest - kIdBase + 1);
  std::vector<int8_t> pending(tableSize, 0);
  auto markPending = [&](int32_t id, const char* what) {
    const size_t slot = static_cast<size_t>(id - kIdBase);
    EXPECT(context, kSlotReuse, pending[slot] == 0, "two events pend under id %d (the second a %s)", id,
           what);
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
    EXPECT(context, kEventRunsOnce, difference == 0 || difference == 1,
           "id %d: %d plain events queued, %d ran", kIdBase + static_cast<int32_t>(slot),
           plainQueued_[slot].load(), plainRan_[slot].load());
    if (difference == 1) markPending(kIdBase + static_cast<int32_t>(slot), "plain");
  }
  EXPECT(context, kEventRunsOnce, !nothingPends || report.pendingAtEnd == 0,
         "%lld events never ran, though every id was handed over and fired",
         static_cast<long long>(report.pendingAtEnd));

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
           static_cast<long long>(report.pendingAtEnd), id, want);
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
    report.followUpsOnOwnId += producer->followUpsOnOwnId;
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

  report.probes = probeCount_;
  report.fired = fired_;
  report.firedOther = firedOther_;
  report.ran = ran_.load();
  report.lost = lost_;
  report.ranTwice = ranTwice_.load();
  report.wrongId = wrongId_.load();
  for (int64_t queued : producers_.back()->queued)
    report.followUps += queued;
  return report;
}

void PrintRenderSummary(const RenderReport& report, int64_t framesRendered) {
  int64_t queued = 0;
  std::string shapes;
  for (int shape = 0; shape < kShapeCount; ++shape) {
    queued += report.queued[shape];
    shapes += std::string(shape == 0 ? "" : " | ") + ShapeName(static_cast<Shape>(shape)) + " " +
              Grouped(report.queued[shape]);
  }
  std::printf("Render events     %s queued, %s fired, %s ran: lost %s, ran twice %s, under a wrong id %s\n",
              Grouped(queued).c_str(), Grouped(report.fired).c_str(), Grouped(report.ran).c_str(),
              Grouped(report.lost).c_str(), Grouped(report.ranTwice).c_str(),
              Grouped(report.wrongId).c_str());
  std::printf(
      "                  %s\n                  %s follow-ups queued from inside render work (%s got the id "
      "they ran under)\n",
      shapes.c_str(), Grouped(report.followUps).c_str(), Grouped(report.followUpsOnOwnId).c_str());
  std::printf("                  ids 16000..%d (slots are reused as they free up), %s\n", report.highestId,
              framesRendered >= 0 ? (Grouped(framesRendered) + " frames rendered").c_str()
                                  : (Grouped(report.firedOther) + " other fires").c_str());
  std::printf("                  %s pending at the end, %s probes of the free slots\n",
              Grouped(report.pendingAtEnd).c_str(), Grouped(report.probes).c_str());
}

}  // namespace quorl::host
