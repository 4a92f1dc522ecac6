#include "bridge/render_events.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <set>
#include <stdexcept>
#include <vector>

#include "bridge/free_slot_index.h"
#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::FreeAllRenderEventSlots;

std::vector<std::vector<int32_t>> calls;
const FrameContext* lastContextAddress = nullptr;
FrameContext lastContext{};

void Record0() {
  calls.push_back({});
}
void Record1(int32_t a) {
  calls.push_back({a});
}
void Record3(int32_t a, int32_t b, int32_t c) {
  calls.push_back({a, b, c});
}
void RecordContext1(int32_t a, const FrameContext* context) {
  calls.push_back({a});
  lastContextAddress = context;
  lastContext = *context;
}
void RecordContext3(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  calls.push_back({a, b, c});
  lastContext = *context;
}
void Throw(int32_t) {
  throw std::runtime_error("render function failed");
}

class RenderEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    FreeAllRenderEventSlots();
    calls.clear();
  }
  void TearDown() override { FreeAllRenderEventSlots(); }
};

TEST_F(RenderEvents, IdentifiersStartAtTheBaseAndReuseTheLowestFreeSlot) {
  EXPECT_EQ(QueueGLEventI(&Record1, 1), 16000);
  EXPECT_EQ(QueueGLEventI(&Record1, 2), 16001);
  EXPECT_EQ(QueueGLEventI(&Record1, 3), 16002);
  UnityRenderEvent(16001);
  UnityRenderEvent(16000);
  // Both 16000 and 16001 are free; the lowest wins, whatever was freed last.
  EXPECT_EQ(QueueGLEventI(&Record1, 4), 16000);
  EXPECT_EQ(QueueGLEventI(&Record1, 5), 16001);
  EXPECT_EQ(QueueGLEventI(&Record1, 6), 16003);
}

TEST_F(RenderEvents, AnIdentifierFiresOnce) {
  const int32_t id = QueueGLEventI(&Record1, 42);
  UnityRenderEvent(id);
  UnityRenderEvent(id);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0], std::vector<int32_t>{42});
}

TEST_F(RenderEvents, IdentifiersOutsideTheTableAreIgnored) {
  const int32_t id = QueueGLEvent(&Record0);
  const int32_t beyond = kRenderEventIdBase + RenderEventSlotCount();
  for (int32_t ignored : {15999, 0, -1, INT_MIN, INT_MIN + 15999, beyond, beyond + 1, INT_MAX}) {
    UnityRenderEvent(ignored);
  }
  EXPECT_TRUE(calls.empty());
  UnityRenderEvent(id);  // still pending after all that
  EXPECT_EQ(calls.size(), 1u);
}

TEST_F(RenderEvents, ArgumentsArriveInTheOrderGiven) {
  UnityRenderEvent(QueueGLEvent(&Record0));
  UnityRenderEvent(QueueGLEventI(&Record1, -7));
  UnityRenderEvent(QueueGLEventIII(&Record3, 1, 2, 3));
  UnityRenderEvent(QueueGLEventIII(&Record3, INT_MIN, 0, INT_MAX));
  const std::vector<std::vector<int32_t>> expected{{}, {-7}, {1, 2, 3}, {INT_MIN, 0, INT_MAX}};
  EXPECT_EQ(calls, expected);
}

TEST_F(RenderEvents, FrameContextHoldsTheSameValuesWhateverThePointers) {
  int marker = 0;
  for (void* x : {static_cast<void*>(nullptr), static_cast<void*>(&marker), reinterpret_cast<void*>(-1)}) {
    lastContext = FrameContext{1, 2, 3, 4};
    UnityRenderEvent(QueueGLEventPrepFrameContextI(&RecordContext1, 9, x, &marker));
    EXPECT_EQ(lastContext.structSize, 24u);
    EXPECT_EQ(lastContext.reserved0, 0u);
    EXPECT_EQ(lastContext.reserved1, 0u);
    EXPECT_EQ(lastContext.reserved2, 0u);
    EXPECT_NE(lastContextAddress, nullptr);
  }
  lastContext = FrameContext{1, 2, 3, 4};
  UnityRenderEvent(QueueGLEventPrepFrameContextIII(&RecordContext3, 4, 5, 6, &marker, nullptr));
  EXPECT_EQ(lastContext.structSize, 24u);
  EXPECT_EQ(lastContext.reserved1 | lastContext.reserved2 | lastContext.reserved0, 0u);
  EXPECT_EQ(calls.back(), (std::vector<int32_t>{4, 5, 6}));
  EXPECT_EQ(sizeof(FrameContext), 24u);
}

int32_t requeuedId = 0;
void QueueAgainWhileRunning(int32_t) {
  requeuedId = QueueGLEventI(&Record1, 77);
}

TEST_F(RenderEvents, ARunningFunctionMayQueueAndGetsItsOwnIdentifier) {
  const int32_t id = QueueGLEventI(&QueueAgainWhileRunning, 0);
  UnityRenderEvent(id);
  EXPECT_EQ(requeuedId, id);
  UnityRenderEvent(requeuedId);
  EXPECT_EQ(calls, (std::vector<std::vector<int32_t>>{{77}}));
}

TEST_F(RenderEvents, AThrowingFunctionLeavesItsSlotFreeAndIsNotRetried) {
  const int32_t id = QueueGLEventI(&Throw, 0);
  EXPECT_THROW(UnityRenderEvent(id), std::runtime_error);
  EXPECT_NO_THROW(UnityRenderEvent(id));
  EXPECT_EQ(QueueGLEvent(&Record0), id);
  EXPECT_TRUE(testing::BridgeMutexFreeForOthers());
}

TEST_F(RenderEvents, LowestFreeIdentifierMatchesAModelUnderRandomTraffic) {
  std::mt19937 random(1234);
  std::set<int32_t> pending;
  const int32_t slotsBefore = RenderEventSlotCount();
  for (int step = 0; step < 20000; ++step) {
    if (pending.empty() || random() % 100 < 55) {
      // The model: the lowest identifier not pending, counting from the base.
      int32_t expected = kRenderEventIdBase;
      while (pending.count(expected) != 0)
        ++expected;
      ASSERT_EQ(QueueGLEvent(&Record0), expected) << "at step " << step;
      pending.insert(expected);
    } else {
      auto it = pending.begin();
      std::advance(it, static_cast<long>(random() % pending.size()));
      UnityRenderEvent(*it);
      pending.erase(it);
    }
  }
  EXPECT_GE(RenderEventSlotCount(), slotsBefore);
}

TEST(FreeSlotIndex, FindsTheLowestFreeSlotAcrossLevels) {
  FreeSlotIndex index;
  EXPECT_EQ(index.Lowest(), FreeSlotIndex::kNone);
  index.Reserve(300000);
  EXPECT_EQ(index.Lowest(), FreeSlotIndex::kNone);
  for (std::size_t slot : {299999u, 262144u, 4096u, 64u, 63u}) {
    index.MarkFree(slot);
    EXPECT_EQ(index.Lowest(), slot);
  }
  index.MarkTaken(63);
  EXPECT_EQ(index.Lowest(), 64u);
  index.MarkTaken(64);
  index.MarkTaken(4096);
  EXPECT_EQ(index.Lowest(), 262144u);
  index.MarkTaken(262144);
  EXPECT_EQ(index.Lowest(), 299999u);
  index.MarkTaken(299999);
  EXPECT_EQ(index.Lowest(), FreeSlotIndex::kNone);
}

TEST(FreeSlotIndex, GrowingKeepsWhatWasFree) {
  FreeSlotIndex index;
  index.Reserve(1);
  index.MarkFree(0);
  index.Reserve(5000);  // two new levels above the old top word
  EXPECT_EQ(index.Lowest(), 0u);
  index.MarkTaken(0);
  index.MarkFree(4999);
  index.Reserve(300000);
  EXPECT_EQ(index.Lowest(), 4999u);
}

// The index against a set of free slots, under random taking and freeing while it grows through every
// height: one word, then two, three and four levels. Freed slots leave stale summaries behind, and
// growing rebuilds the summaries, so each search must still find the lowest free slot.
TEST(FreeSlotIndex, MatchesAModelWhileGrowingThroughEveryHeight) {
  std::mt19937 random(99);
  FreeSlotIndex index;
  std::set<std::size_t> free;
  for (const std::size_t capacity : {std::size_t{1}, std::size_t{64}, std::size_t{65}, std::size_t{4096},
                                     std::size_t{4097}, std::size_t{262145}}) {
    index.Reserve(capacity);
    for (int step = 0; step < 3000; ++step) {
      const std::size_t lowest = free.empty() ? FreeSlotIndex::kNone : *free.begin();
      ASSERT_EQ(index.Lowest(), lowest) << "capacity " << capacity << ", step " << step;
      if (!free.empty() && random() % 2 == 0) {
        // Take the lowest, as the queue does, or now and then any free slot.
        auto taken = free.begin();
        if (random() % 4 == 0) std::advance(taken, static_cast<long>(random() % free.size()));
        index.MarkTaken(*taken);
        free.erase(taken);
      } else {
        // Free a slot near the top or anywhere below it, so that far words and levels are reached.
        const std::size_t slot = random() % 2 == 0
                                     ? capacity - 1 - random() % std::min<std::size_t>(capacity, 70)
                                     : random() % capacity;
        if (free.insert(slot).second) index.MarkFree(slot);
      }
    }
    // Every free slot comes out in order when taken lowest first; then all are freed again, so that the
    // next growth starts from them.
    for (const std::size_t slot : free) {
      ASSERT_EQ(index.Lowest(), slot) << "capacity " << capacity;
      index.MarkTaken(slot);
    }
    ASSERT_EQ(index.Lowest(), FreeSlotIndex::kNone);
    std::vector<std::size_t> shuffled(free.begin(), free.end());
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    for (const std::size_t slot : shuffled)
      index.MarkFree(slot);
  }
}

struct Big {
  std::vector<int>* sink;
  std::string payload;
  void operator()() const { sink->push_back(static_cast<int>(payload.size())); }
};

TEST(RenderEventClosure, CopiesSwapsAndOwnsInlineAndHeapCallables) {
  std::vector<int> sink;
  RenderEventClosure empty;
  EXPECT_TRUE(empty.empty());

  RenderEventClosure small([&sink] { sink.push_back(1); });
  RenderEventClosure big(Big{&sink, std::string(100, 'x')});  // does not fit inline
  RenderEventClosure bigCopy(big);
  RenderEventClosure smallCopy;
  smallCopy = small;
  big = RenderEventClosure();  // the copy owns its own payload
  bigCopy();
  smallCopy();
  swap(smallCopy, empty);
  EXPECT_TRUE(smallCopy.empty());
  empty();
  EXPECT_EQ(sink, (std::vector<int>{100, 1, 1}));
}

}  // namespace
}  // namespace quorl
