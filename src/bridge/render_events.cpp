#include "bridge/render_events.h"

#include <atomic>
#include <cstddef>
#include <mutex>

#include "bridge/free_slot_index.h"

namespace quorl {

namespace {

// The slot table. Its constructor is constexpr and its members are plain words, so the global below is
// constant-initialised with any compiler: it works from the moment the library is loaded, also when
// another library's static constructor queues first. Pending closures are destroyed when the library is
// unloaded. Every member but `count` is guarded by `mutex`.
class RenderEventSlots {
 public:
  constexpr RenderEventSlots() noexcept = default;
  ~RenderEventSlots() { delete[] slots_; }
  RenderEventSlots(const RenderEventSlots&) = delete;
  RenderEventSlots& operator=(const RenderEventSlots&) = delete;

  std::mutex mutex;  // the render-event slot mutex
  FreeSlotIndex freeSlots;
  // The slot count, published after each append, for the unlocked range test of FireRenderEvent.
  std::atomic<int32_t> count{0};

  RenderEventClosure& operator[](std::size_t index) noexcept { return slots_[index]; }

  // Appends a copy of `closure` as a new slot and returns its index; leaves the table as it was (as
  // far as anyone can see) if that throws.
  std::size_t Append(const RenderEventClosure& closure) {
    const std::size_t index = size_;
    if (index == capacity_) Grow();
    slots_[index].CopyIntoEmpty(closure);  // a throwing copy leaves the new slot out of the table
    size_ = index + 1;
    count.store(static_cast<int32_t>(size_), std::memory_order_release);
    return index;
  }

 private:
  // Doubles the capacity; every closure moves over byte for byte.
  void Grow() {
    const std::size_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
    freeSlots.Reserve(capacity);
    RenderEventClosure* grown = new RenderEventClosure[capacity];
    for (std::size_t i = 0; i < size_; ++i)
      grown[i].TakeFrom(slots_[i]);
    delete[] slots_;
    slots_ = grown;
    capacity_ = capacity;
  }

  RenderEventClosure* slots_ = nullptr;  // capacity_ closures, the first size_ of them slots
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Refuses to compile if the table ever needs dynamic initialisation.
#if defined(__clang__)
[[clang::require_constant_initialization]]
#else
__constinit
#endif
RenderEventSlots renderEventSlots;

// The rare path of QueueRenderEvent, kept out of line so that the common one stays short.
[[gnu::noinline]] int32_t AppendRenderEvent(RenderEventSlots& table, const RenderEventClosure& closure) {
  return kRenderEventIdBase + static_cast<int32_t>(table.Append(closure));
}

}  // namespace

int32_t QueueRenderEvent(const RenderEventClosure& closure) {
  RenderEventSlots& table = renderEventSlots;
  std::lock_guard<std::mutex> lock(table.mutex);
  // Only slots that exist can be free, so an empty set also covers a table without slots.
  const std::size_t lowest = table.freeSlots.Lowest();
  if (lowest == FreeSlotIndex::kNone) return AppendRenderEvent(table, closure);
  table[lowest].CopyIntoEmpty(closure);  // a throwing copy leaves the slot free
  table.freeSlots.MarkTaken(lowest);
  return kRenderEventIdBase + static_cast<int32_t>(lowest);
}

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
