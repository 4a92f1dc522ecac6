#include "bridge/render_events.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <vector>

#include "bridge/free_slot_index.h"

namespace quorl {

namespace {

struct RenderEventSlots {
  std::mutex mutex;  // the render-event slot mutex
  std::vector<RenderEventClosure> slots;
  FreeSlotIndex freeSlots;
  // The slot count, published after each append, for the unlocked range test of FireRenderEvent.
  std::atomic<int32_t> count{0};
};

RenderEventSlots& Slots() {
  // Made on first use from any thread (also from another library's static constructor); its pending
  // closures are destroyed when the library is unloaded.
  static RenderEventSlots table;
  return table;
}

}  // namespace

int32_t QueueRenderEvent(const RenderEventClosure& closure) {
  RenderEventSlots& table = Slots();
  std::lock_guard<std::mutex> lock(table.mutex);
  const auto n = static_cast<int32_t>(table.slots.size());
  if (n > 0) {
    const std::size_t lowest = table.freeSlots.Lowest();
    if (lowest != FreeSlotIndex::kNone) {
      table.slots[lowest] = closure;  // copy first: a throwing copy leaves the slot free
      table.freeSlots.MarkTaken(lowest);
      return kRenderEventIdBase + static_cast<int32_t>(lowest);
    }
  }
  table.freeSlots.Reserve(table.slots.size() + 1);
  table.slots.push_back(closure);
  table.count.store(n + 1, std::memory_order_release);
  return kRenderEventIdBase + n;
}

void FireRenderEvent(int32_t eventId) {
  // Wrapping 32-bit subtraction: far negative identifiers come out large and fail the range test.
  const auto index =
      static_cast<int32_t>(static_cast<uint32_t>(eventId) - static_cast<uint32_t>(kRenderEventIdBase));
  if (index < 0) return;
  RenderEventSlots& table = Slots();
  if (index >= table.count.load(std::memory_order_acquire)) return;

  RenderEventClosure closure;
  {
    std::lock_guard<std::mutex> lock(table.mutex);
    closure.swap(table.slots[static_cast<std::size_t>(index)]);
    if (!closure.empty()) table.freeSlots.MarkFree(static_cast<std::size_t>(index));
  }
  if (closure.empty()) return;
  closure();
}

int32_t RenderEventSlotCount() {
  return Slots().count.load(std::memory_order_acquire);
}

namespace {

// Scopes live only for one call on one thread, so their blocks are recycled through a per-thread list
// instead of being allocated every frame. Every block has the same size, whatever type asks for it.
constexpr std::size_t kScopeBlockSize = 64;

struct ScopeBlockCache {
  struct Block {
    Block* next;
  };
  Block* head = nullptr;

  ~ScopeBlockCache() {
    while (head != nullptr) {
      Block* next = head->next;
      ::operator delete(head);
      head = next;
    }
  }
};

thread_local ScopeBlockCache scopeBlocks;

template <typename T>
struct RecyclingAllocator {
  using value_type = T;

  RecyclingAllocator() noexcept = default;
  template <typename U>
  RecyclingAllocator(const RecyclingAllocator<U>&) noexcept {}  // NOLINT(google-explicit-constructor)

  T* allocate(std::size_t n) {
    static_assert(sizeof(T) <= kScopeBlockSize, "a frame-context scope block is too small");
    if (n != 1) return static_cast<T*>(::operator new(n * sizeof(T)));
    ScopeBlockCache& cache = scopeBlocks;
    if (cache.head != nullptr) {
      ScopeBlockCache::Block* block = cache.head;
      cache.head = block->next;
      return reinterpret_cast<T*>(block);
    }
    return static_cast<T*>(::operator new(kScopeBlockSize));
  }

  void deallocate(T* pointer, std::size_t n) noexcept {
    if (n != 1) {
      ::operator delete(pointer);
      return;
    }
    auto* block = reinterpret_cast<ScopeBlockCache::Block*>(pointer);
    ScopeBlockCache& cache = scopeBlocks;
    block->next = cache.head;
    cache.head = block;
  }

  template <typename U>
  bool operator==(const RecyclingAllocator<U>&) const noexcept {
    return true;
  }
  template <typename U>
  bool operator!=(const RecyclingAllocator<U>&) const noexcept {
    return false;
  }
};

}  // namespace

std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* /*x*/) {
  std::shared_ptr<FrameContextScope> scope =
      std::allocate_shared<FrameContextScope>(RecyclingAllocator<FrameContextScope>());
  context.structSize = 24;
  context.reserved0 = 0;
  context.reserved1 = 0;
  context.reserved2 = 0;
  return scope;
}

void RunWithFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* /*y*/) {
  FrameContext context;
  std::shared_ptr<FrameContextScope> scope = PrepareFrameContext(context, x);
  fn(a, &context);
  scope.reset();
}

void RunWithFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c, void* x,
                            void* /*y*/) {
  FrameContext context;
  std::shared_ptr<FrameContextScope> scope = PrepareFrameContext(context, x);
  fn(a, b, c, &context);
  scope.reset();
}

}  // namespace quorl
