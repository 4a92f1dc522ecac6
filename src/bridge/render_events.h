// Render event slots: hands work from any thread to the engine's render thread.
//
// A caller binds a function and its arguments into a RenderEventClosure and queues it; the closure goes
// into the lowest free slot and the caller gets 16000 plus the slot's index as the event identifier. When
// the render thread fires that identifier, the closure is swapped out of its slot under the slot mutex
// and then run and destroyed with no lock held; the slot is free from the swap on, so an identifier runs
// at most once. The table only grows; a slot that ran stays as a free slot.
//
// Threads: any thread may queue, the render thread fires. The slot mutex (a plain mutex of its own, never
// the bridge mutex) is held only for the search, the copy and the swap. The slot count is also kept in an
// atomic so that FireRenderEvent can test an identifier's range without the lock; the table never
// shrinks, so an identifier once in range stays in range.
//
// A round trip runs every frame, so its common paths are inline (at the end of this header): the queue's
// search and copy, so that an export queues with no call but the mutex's, and the frame-context wrappers,
// so that a fired closure runs its wrapper without another call level. Nothing outside this unit touches
// what render_events_internal holds.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "bridge/exports.h"
#include "bridge/free_slot_index.h"
#include "bridge/render_closure.h"

namespace quorl {

inline constexpr int32_t kRenderEventIdBase = 16000;

// Queues a copy of `closure` into the lowest free slot and returns its event identifier.
inline int32_t QueueRenderEvent(const RenderEventClosure& closure);

// Runs and frees the slot of `eventId` once; identifiers below the base, beyond the table or already
// fired are ignored. Exceptions of the called function pass through, with the slot already free.
void FireRenderEvent(int32_t eventId);

// The number of slots ever made (free or pending).
int32_t RenderEventSlotCount();

// Has no data and no other purpose than to live, behind a thread-safe shared pointer, for as long as a
// frame-context render function runs. Final, so that its destruction is a direct call.
class FrameContextScope final {
 public:
  virtual ~FrameContextScope() = default;
};

namespace render_events_internal {
struct ScopeBlock;
}

// Fills `context` (structSize 24, the rest zero) and returns a new scope. `x` is accepted and not read.
// The scope and its counts are made in `block` while that block is free, so a scope costs no
// allocation: the wrappers below pass a block in their own frame, which outlives the scope they make;
// without one, the calling thread's block is used. A scope made while its block is in use is allocated.
// The shared pointer must not outlive the block, nor leave the thread that made it.
inline std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* x);
inline std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* x,
                                                              render_events_internal::ScopeBlock& block);

// Calls `fn` with the integers and a FrameContext that lives in this call's frame, under a new scope
// that is released when `fn` returns or throws. `y` is accepted and not used.
inline void RunWithFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* y);
inline void RunWithFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c, void* x,
                                   void* y);

// ---- Inline implementation ---------------------------------------------------------------------------

namespace render_events_internal {

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

  // Appends `closure` as a new slot, leaving `closure` empty, and returns the slot's index. If that
  // throws, the table is as it was as far as anyone can see.
  std::size_t Append(RenderEventClosure& closure);

 private:
  RenderEventClosure* slots_ = nullptr;  // capacity_ closures, the first size_ of them slots
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// Defined in render_events.cpp, constant-initialised.
extern RenderEventSlots renderEventSlots;

// The rare path of QueueRenderEvent, with the mutex held: `closure` is a copy of the queued closure,
// taken by value so that the caller's closure never has its address taken.
int32_t AppendRenderEvent(RenderEventClosure closure);

// Room for one frame-context scope and its counts. A wrapper keeps one in its frame, since the scope it
// makes lives exactly as long as the call (no thread-local look-up, which a library loaded at run time
// pays for with a call), and marks it free; the thread-local one serves PrepareFrameContext without a
// block. Plain data, zero-initialised as a thread-local: nothing to free when the thread ends.
constexpr std::size_t kScopeBlockSize = 64;
struct ScopeBlock {
  alignas(std::max_align_t) unsigned char bytes[kScopeBlockSize];
  bool inUse;
};
inline thread_local ScopeBlock scopeBlock;

// Hands out the block it was made with while that block is free, and the heap otherwise. It keeps the
// block's address, so freeing a scope needs no second look-up of the thread's block.
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

}  // namespace render_events_internal

inline int32_t QueueRenderEvent(const RenderEventClosure& closure) {
  // Asked before the mutex call, where an export's closure is still known to the compiler: then the
  // other kind of copy drops out, the closure's address is never taken, and its bound values are
  // stored into the slot from registers.
  const bool copiesAsBytes = closure.CopiesAsBytes();
  render_events_internal::RenderEventSlots& table = render_events_internal::renderEventSlots;
  std::lock_guard<std::mutex> lock(table.mutex);
  // Only slots that exist can be free, so an empty set also covers a table without slots.
  const std::size_t lowest = table.freeSlots.Lowest();
  if (lowest == FreeSlotIndex::kNone) {
    RenderEventClosure copy;
    if (copiesAsBytes) {
      copy.CopyBytesIntoEmpty(closure);
    } else {
      copy.CopyIntoEmpty(closure);
    }
    return render_events_internal::AppendRenderEvent(std::move(copy));
  }
  if (copiesAsBytes) {
    table[lowest].CopyBytesIntoEmpty(closure);
  } else {
    table[lowest].CopyIntoEmpty(closure);  // a throwing copy leaves the slot free
  }
  table.freeSlots.MarkTaken(lowest);
  return kRenderEventIdBase + static_cast<int32_t>(lowest);
}

inline std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* /*x*/,
                                                              render_events_internal::ScopeBlock& block) {
  using render_events_internal::ScopeBlockAllocator;
  std::shared_ptr<FrameContextScope> scope =
      std::allocate_shared<FrameContextScope>(ScopeBlockAllocator<FrameContextScope>(block));
  context.structSize = 24;
  context.reserved0 = 0;
  context.reserved1 = 0;
  context.reserved2 = 0;
  return scope;
}

inline std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* x) {
  return PrepareFrameContext(context, x, render_events_internal::scopeBlock);
}

// The block is declared before the scope, so it outlives it also when `fn` throws.
inline void RunWithFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* /*y*/) {
  render_events_internal::ScopeBlock block;
  block.inUse = false;
  FrameContext context;
  std::shared_ptr<FrameContextScope> scope = PrepareFrameContext(context, x, block);
  fn(a, &context);
  scope.reset();
}

inline void RunWithFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c, void* x,
                                   void* /*y*/) {
  render_events_internal::ScopeBlock block;
  block.inUse = false;
  FrameContext context;
  std::shared_ptr<FrameContextScope> scope = PrepareFrameContext(context, x, block);
  fn(a, b, c, &context);
  scope.reset();
}

}  // namespace quorl
