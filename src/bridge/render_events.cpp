#include "bridge/render_events.h"

namespace quorl {

namespace render_events_internal {

std::size_t RenderEventSlots::Append(RenderEventClosure& closure) {
  const std::size_t index = size_;
  if (index == capacity_) {
    // Doubles the capacity; every closure moves over byte for byte.
    const std::size_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
    freeSlots.Reserve(capacity);
    RenderEventClosure* grown = new RenderEventClosure[capacity];
    for (std::size_t i = 0; i < size_; ++i)
      grown[i].TakeFrom(slots_[i]);
    delete[] slots_;
    slots_ = grown;
    capacity_ = capacity;
  }
  slots_[index].TakeFrom(closure);
  size_ = index + 1;
  count.store(static_cast<int32_t>(size_), std::memory_order_release);
  return index;
}

// Refuses to compile if the table ever needs dynamic initialisation.
#if defined(__clang__)
[[clang::require_constant_initialization]]
#else
__constinit
#endif
RenderEventSlots renderEventSlots;

int32_t AppendRenderEvent(RenderEventClosure closure) {
  return kRenderEventIdBase + static_cast<int32_t>(renderEventSlots.Append(closure));
}

}  // namespace render_events_internal

using render_events_internal::renderEventSlots;
using render_events_internal::RenderEventSlots;

void FireRenderEvent(int32_t eventId) {
  // Wrapping 32-bit subtraction: far negative identifiers come out large and fail the range test.
  const auto index =
      static_cast<int32_t>(static_cast<uint32_t>(eventId) - static_cast<uint32_t>(kRenderEventIdBase));
  if (index < 0) return;
  RenderEventSlots& table = renderEventSlots;
  if (index >= table.count.load(std::memory_order_acquire)) return;

  RenderEventClosure closure;
  {
    std::lock_guard<std::mutex> lock(table.mutex);
    closure.TakeFrom(table[static_cast<std::size_t>(index)]);
    if (!closure.empty()) table.freeSlots.MarkFree(static_cast<std::size_t>(index));
  }
  if (closure.empty()) return;
  closure();
}

int32_t RenderEventSlotCount() {
  return renderEventSlots.count.load(std::memory_order_acquire);
}

namespace {

// A scope lives only for one call on one thread, so each thread keeps one block for it and its counts
// and reuses it on every frame-context call. The thread's block is found once per scope: the allocator
// keeps its address, so freeing the scope needs no second look-up. A scope made while the block is in
// use (a render function that fires another frame-context event itself) is allocated. The block is
// plain thread-local data: nothing to free when the thread ends.
constexpr std::size_t kScopeBlockSize = 64;

struct ScopeBlock {
  alignas(std::max_align_t) unsigned char bytes[kScopeBlockSize];
  bool inUse;
};

thread_local ScopeBlock scopeBlock;

template <typename T>
struct ScopeBlockAllocator {
  using value_type = T;

  explicit ScopeBlockAllocator(ScopeBlock& block) noexcept : block(&block) {}
  template <typename U>
  ScopeBlockAllocator(const ScopeBlockAllocator<U>& other) noexcept  // NOLINT(google-explicit-constructor)
      : block(other.block) {}

  T* allocate(std::size_t n) {
    static_assert(sizeof(T) <= kScopeBlockSize, "a frame-context scope block is too small");
    static_assert(alignof(T) <= alignof(std::max_align_t), "a frame-context scope block is misaligned");
    if (n == 1 && !block->inUse) {
      block->inUse = true;
      return reinterpret_cast<T*>(block->bytes);
    }
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }

  void deallocate(T* pointer, std::size_t) noexcept {
    if (reinterpret_cast<unsigned char*>(pointer) == block->bytes) {
      block->inUse = false;
      return;
    }
    ::operator delete(pointer);
  }

  template <typename U>
  bool operator==(const ScopeBlockAllocator<U>& other) const noexcept {
    return block == other.block;
  }
  template <typename U>
  bool operator!=(const ScopeBlockAllocator<U>& other) const noexcept {
    return block != other.block;
  }

  ScopeBlock* block;
};

}  // namespace

std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* /*x*/) {
  std::shared_ptr<FrameContextScope> scope =
      std::allocate_shared<FrameContextScope>(ScopeBlockAllocator<FrameContextScope>(scopeBlock));
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
