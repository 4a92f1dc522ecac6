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

}  // namespace quorl
