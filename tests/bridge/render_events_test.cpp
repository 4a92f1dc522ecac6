#include "bridge/render_events.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <set>
#include <vector>

#include "bridge/free_slot_index.h"
#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::FreeAllRenderEventSlots;

std::vector<int32_t> calls;

void Record1(int32_t a) {
  calls.push_back(a);
}

class RenderEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    FreeAllRenderEventSlots();
    calls.clear();
  }
  void TearDown() override { FreeAllRenderEventSlots(); }
};

TEST_F(RenderEvents, AnIdentifierFiresOnceAndThoseOutsideTheTableAreIgnored) {
  const int32_t id = QueueGLEventI(&Record1, 42);
  const int32_t beyond = kRenderEventIdBase + RenderEventSlotCount();
  for (int32_t ignored : {15999, 0, -1, INT_MIN, INT_MIN + 15999, beyond, beyond + 1, INT_MAX})
    UnityRenderEvent(ignored);
  EXPECT_TRUE(calls.empty());
  UnityRenderEvent(id);  // still pending after all that
  UnityRenderEvent(id);
  EXPECT_EQ(calls, std::vector<int32_t>{42});
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
  EXPECT_EQ(calls, std::vector<int32_t>{77});
}

// Without a block of the caller's, a scope is made in the thread's block; one made while that block is
// taken comes from the heap, and each frees its own storage. Every scope fills the record the same way.
TEST(FrameContextScopes, ASecondScopeOfTheThreadBlockComesFromTheHeap) {
  FrameContext first{7, 7, 7, 7};
  FrameContext second{7, 7, 7, 7};
  std::shared_ptr<FrameContextScope> outer = PrepareFrameContext(first, nullptr);
  std::shared_ptr<FrameContextScope> inner = PrepareFrameContext(second, &second);
  const auto* block = render_events_internal::scopeBlock.bytes;
  const auto* end = block + render_events_internal::kScopeBlockSize;
  auto inBlock = [&](const void* p) { return p >= block && p < end; };
  EXPECT_TRUE(inBlock(outer.get()));
  EXPECT_FALSE(inBlock(inner.get()));
  for (const FrameContext& context : {first, second}) {
    EXPECT_EQ(context.structSize, 24u);
    EXPECT_EQ(context.reserved0 | context.reserved1 | context.reserved2, 0u);
  }
  outer.reset();
  EXPECT_FALSE(render_events_internal::scopeBlock.inUse);
  inner.reset();
  outer = PrepareFrameContext(first, nullptr);  // the block is free again
  EXPECT_TRUE(inBlock(outer.get()));
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

}  // namespace
}  // namespace quorl
