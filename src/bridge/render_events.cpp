#include "bridge/render_events.h"

#include <atomic>
#include <cstddef>
#include <mutex>

#include "bridge/free_slot_index.h"

namespace quorl {

namespace {

// The slot table. Its constructor is constexpr, so the global below is constant-initialised: it works
// from the moment the library is loaded, also when another library's static constructor queues first.
// Pending closures are destroyed when the library is unloaded.
class RenderEventSlots {
 public:
  constexpr RenderEventSlots() noexcept = default;
  RenderEventSlots(const RenderEventSlots&) = delete;
  RenderEventSlots& operator=(const RenderEventSlots&) = delete;

  std::mutex mutex;  // the render-event slot mutex
  FreeSlotIndex freeSlots;
  // The slot count, published after each append, for the unlocked range test of FireRenderEvent.
  std::atomic<int32_t> count{0};

  std::size_t size() const noexcept { return size_; }
  RenderEventClosure& operator[](std::size_t index) noexcept { return slots_[index]; }

  // Appends a copy of `closure`; leaves the table as it was if that throws.
  void Append(const RenderEventClosure& closure) {
    if (size_ == capacity_) {
      const std::size_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
      std::unique_ptr<RenderEventClosure[]> grown(new RenderEventClosure[capacity]);
      grown[size_].CopyIntoEmpty(closure);
      for (std::size_t i = 0; i < size_; ++i)
        grown[i].TakeFrom(slots_[i]);
      slots_.swap(grown);
      capacity_ = capacity;
    } else {
      slots_[size_].CopyIntoEmpty(closure);
    }
    ++size_;
  }

 private:
  std::unique_ptr<RenderEventClosure[]> slots_;
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

}  // namespace

int32_t QueueRenderEvent(const RenderEventClosure& closure) {
  RenderEventSlots& table = renderEventSlots;
  std::lock_guard<std::mutex> lock(table.mutex);
  const auto n = static_cast<int32_t>(table.size());
  if (n > 0) {
    const std::size_t lowest = table.freeSlots.Lowest();
    if (lowest != FreeSlotIndex::kNone) {
      table[lowest].CopyIntoEmpty(closure);  // a throwing copy leaves the slot free
      table.freeSlots.MarkTaken(lowest);
      return kRenderEventIdBase + static_cast<int32_t>(lowest);
    }
  }
  table.freeSlots.Reserve(table.size() + 1);
  table.Append(closure);
  table.count.store(n + 1, std::memory_order_release);
  return kRenderEventIdBase + n;
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

// A scope lives only for one call on one thread, so each thread keeps one block for it and reuses it
// on every frame-context event instead of allocating. A scope made while the thread's block is in use
// (a render function that fires another frame-context event itself) gets a heap block. The block is
// plain thread-local data: nothing to free when the thread ends.
constexpr std::size_t kScopeBlockSize = 64;

struct ScopeBlock {
  alignas(std::max_align_t) unsigned char bytes[kScopeBlockSize];
  bool inUse;
};

thread_local ScopeBlock scopeBlock;

template <typename T>
struct RecyclingAllocator {
  using value_type = T;

  RecyclingAllocator() noexcept = default;
  template <typename U>
  RecyclingAllocator(const RecyclingAllocator<U>&) noexcept {}  // NOLINT(google-explicit-constructor)

  T* allocate(std::size_t n) {
    static_assert(sizeof(T) <= kScopeBlockSize, "a frame-context scope block is too small");
    static_assert(alignof(T) <= alignof(std::max_align_t), "a frame-context scope block is misaligned");
    ScopeBlock& block = scopeBlock;
    if (n == 1 && !block.inUse) {
      block.inUse = true;
      return reinterpret_cast<T*>(block.bytes);
    }
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }

  void deallocate(T* pointer, std::size_t) noexcept {
    ScopeBlock& block = scopeBlock;
    if (reinterpret_cast<unsigned char*>(pointer) == block.bytes) {
      block.inUse = false;
      return;
    }
    ::operator delete(pointer);
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
