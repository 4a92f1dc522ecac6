// The straightforward render-event table that the render benchmark measures the library against: what
// one would write first. A std::function per slot under one std::mutex, a linear scan for the lowest
// free slot, and a make_shared scope around each frame-context call. It is built as a shared library of
// its own, with the library's flags and version script, and exports the render-event functions under
// the library's names, so the benchmark loads and calls both the same way.
//
// Same contract as the library's render events: any thread queues, the render thread fires, the mutex
// is never held while a queued function runs.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "bridge/exports.h"

namespace {

constexpr int32_t kIdBase = 16000;

std::mutex slotsMutex;
std::vector<std::function<void()>> slots;

int32_t Queue(std::function<void()> call) {
  std::lock_guard<std::mutex> lock(slotsMutex);
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (!slots[i]) {
      slots[i] = std::move(call);
      return kIdBase + static_cast<int32_t>(i);
    }
  }
  slots.push_back(std::move(call));
  return kIdBase + static_cast<int32_t>(slots.size() - 1);
}

struct FrameContextScope {
  virtual ~FrameContextScope() = default;
};

std::shared_ptr<FrameContextScope> PrepareFrameContext(FrameContext& context) {
  auto scope = std::make_shared<FrameContextScope>();
  context = FrameContext{24, 0, 0, 0};
  return scope;
}

}  // namespace

extern "C" {

int32_t QueueGLEvent(QuorlRenderFn fn) {
  return Queue([fn] { fn(); });
}

int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  return Queue([fn, a] { fn(a); });
}

int32_t QueueGLEventIII(QuorlRenderFnIII fn, int32_t a, int32_t b, int32_t c) {
  return Queue([fn, a, b, c] { fn(a, b, c); });
}

int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void*, void*) {
  return Queue([fn, a] {
    FrameContext context;
    const auto scope = PrepareFrameContext(context);
    fn(a, &context);
  });
}

int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c,
                                        void* x, void* y) {
  return Queue([fn, a, b, c, x, y] {
    static_cast<void>(x);
    static_cast<void>(y);
    FrameContext context;
    const auto scope = PrepareFrameContext(context);
    fn(a, b, c, &context);
  });
}

void UnityRenderEvent(int32_t eventId) {
  std::function<void()> call;
  {
    std::lock_guard<std::mutex> lock(slotsMutex);
    const int64_t index = int64_t{eventId} - kIdBase;
    if (index < 0 || index >= static_cast<int64_t>(slots.size())) return;
    call.swap(slots[static_cast<std::size_t>(index)]);
  }
  if (call) call();
}

intptr_t UnityRenderEventFunc(void) {
  return reinterpret_cast<intptr_t>(&UnityRenderEvent);
}

}  // extern "C"
