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
#pragma once

#include <cstdint>
#include <memory>

#include "bridge/exports.h"
#include "bridge/render_closure.h"

namespace quorl {

inline constexpr int32_t kRenderEventIdBase = 16000;

// Queues a copy of `closure` into the lowest free slot and returns its event identifier.
int32_t QueueRenderEvent(const RenderEventClosure& closure);

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

// Fills `context` (structSize 24, the rest zero) and returns a new scope. `x` is accepted and not read.
// Each thread keeps one block for a scope and its counts, so the scope of a frame-context call costs no
// allocation; a scope made while the thread's block is in use (a render function that fires another
// frame-context event itself) is allocated. The shared pointer must not leave the thread that made it.
std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context, void* x);

void RunWithFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* y);
void RunWithFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c, void* x,
                            void* y);

}  // namespace quorl
