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
    EXPECT(context, kSlotReuse, pending[slot] == 0, "two events pend under id %d, one %s", id, what);
    pending[slot] = 1;
    ++pendingAtEnd_;
  };
  for (auto& producer : producers_) {
    for (uint32_t i = 0; i < EventProducer::kRing; ++i) {
      const EventRecord& record = producer->ring[i];
      if (record.outstanding && (record.word.load() & kRunsMask) == 0)
        markPending(record.queuedId, "with a record");
    }
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    const int32_t difference = plainQueued_[slot].load() - plainRan_[slot].load();
    EXPECT(context, kEventRunsOnce, difference == 0 || difference == 1,
           "id %d: %d more plain events queued than ran", kIdBase + static_cast<int32_t>(slot), difference);
    if (difference == 1) markPending(kIdBase + static_cast<int32_t>(slot), "plain");
  }
  EXPECT(context, kEventRunsOnce, !nothingPends || pendingAtEnd_ == 0,
         "%lld events pend, yet every id was fired", static_cast<long long>(pendingAtEnd_));

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
    EXPECT(context, kSlotReuse, id == want || reported++ >= 3, "a new event got id %d, the lowest free is %d",
           id, want);
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
        FAIL(context, kEventRunsOnce, "the %s event of id %d did not run when the table was fired",
             ShapeName(record.shape), record.queuedId);
      }
    }
  }
  for (size_t slot = 0; slot < tableSize; ++slot) {
    if (plainQueued_[slot].load() != plainRan_[slot].load() && neverRan++ < 3) {
      FAIL(context, kEventRunsOnce, "the plain event of id %d did not run when the table was fired",
           kIdBase + static_cast<int32_t>(slot));
    }
  }
  EXPECT(context, kEventRunsOnce, neverRan == 0, "%lld events did not run", static_cast<long long>(neverRan));
  for (int32_t p = 0; p < probeCount_; ++p) {
    const Probe& probe = probes_[p];
    EXPECT(context, kEventRunsOnce, probe.runs.load() == 1 && probe.firedUnder.load() == probe.id,
           "the probe of id %d ran %d times, last under id %d", probe.id, probe.runs.load(),
           probe.firedUnder.load());
  }

  // Now nothing is pending: the next event takes the first slot.
  const int32_t last = probeCount_;
  const int32_t first = QueueProbe(context);
  EXPECT(context, kSlotReuse, first == kIdBase, "with nothing pending a new event got id %d", first);
  FireId(context, first);
  EXPECT(context, kEventRunsOnce, probes_[last].runs == 1, "the last probe ran %d times",
         probes_[last].runs.load());
}

void RenderTraffic::PrintSummary(int64_t framesRendered) const {
  int64_t queued[kShapeCount] = {}, all = 0, followUps = 0;
  for (const auto& producer : producers_) {
    for (int shape = 0; shape < kShapeCount; ++shape) {
      queued[shape] += producer->queued[shape];
      all += producer->queued[shape];
      followUps += producer == producers_.back() ? producer->queued[shape] : 0;
    }
  }
  std::printf("Render events     %s queued, %s fired, %s ran: lost %s, ran twice %s, under a wrong id %s\n",
              Grouped(all).c_str(), Grouped(fired_).c_str(), Grouped(ran_.load()).c_str(),
              Grouped(lost_).c_str(), Grouped(ranTwice_.load()).c_str(), Grouped(wrongId_.load()).c_str());
  for (int shape = 0; shape < kShapeCount; ++shape)
    std::printf("%s%s %s", shape == 0 ? "                  " : " | ", ShapeName(static_cast<Shape>(shape)),
                Grouped(queued[shape]).c_str());
  std::printf(
      "\n                  %s follow-ups queued from inside render work; ids 16000..%d, reused as they "
      "free\n",
      Grouped(followUps).c_str(), highestId_.load());
  const std::string fires = framesRendered >= 0 ? Grouped(framesRendered) + " frames rendered"
                                                : Grouped(firedOther_) + " fires of repeated or unknown ids";
  std::printf("                  %s; %s pending at the end, %s probes of the free slots\n", fires.c_str(),
              Grouped(pendingAtEnd_).c_str(), Grouped(probeCount_).c_str());
}

}  // namespace quorl::host
