// The least that any render-event library of this contract can do per round trip, as a library of its
// own: the queue call stores the bound call under a std::mutex and the fire takes it back under the same
// mutex and calls it, with one slot, no search, no type erasure and no frame-context scope. Its round
// trip is the two lock pairs in the shape in which the engine meets them (calls through exports, the
// stores of the bound call between them), which costs more than two pairs of the floor's tight loop.
//
// It keeps one event at a time: the benchmark measures it with nothing pending. Built and exported like
// the straightforward table; any thread may queue and fire, as there.
#include <cstdint>
#include <mutex>

#include "bridge/exports.h"

namespace {

constexpr int32_t kIdBase = 16000;

enum class Kind { kNone, kI, kContextI, kContextIII };

std::mutex slotMutex;
Kind kind = Kind::kNone;
using AnyFn = void (*)();
AnyFn function = nullptr;
int32_t a = 0, b = 0, c = 0;

int32_t Store(Kind what, AnyFn fn, int32_t first, int32_t second, int32_t third) {
  std::lock_guard<std::mutex> lock(slotMutex);
  kind = what;
  function = fn;
  a = first;
  b = second;
  c = third;
  return kIdBase;
}

}  // namespace

extern "C" {

QUORL_EXPORT int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t first) {
  return Store(Kind::kI, reinterpret_cast<AnyFn>(fn), first, 0, 0);
}

QUORL_EXPORT int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t first, void*,
                                                   void*) {
  return Store(Kind::kContextI, reinterpret_cast<AnyFn>(fn), first, 0, 0);
}

QUORL_EXPORT int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t first,
                                                     int32_t second, int32_t third, void*, void*) {
  return Store(Kind::kContextIII, reinterpret_cast<AnyFn>(fn), first, second, third);
}

QUORL_EXPORT void UnityRenderEvent(int32_t eventId) {
  Kind what;
  AnyFn fn;
  int32_t first, second, third;
  {
    std::lock_guard<std::mutex> lock(slotMutex);
    what = kind;
    fn = function;
    first = a;
    second = b;
    third = c;
    kind = Kind::kNone;
  }
  if (eventId != kIdBase) return;
  FrameContext context{24, 0, 0, 0};
  if (what == Kind::kI) reinterpret_cast<QuorlRenderFnI>(fn)(first);
  if (what == Kind::kContextI) reinterpret_cast<QuorlRenderFnFrameContextI>(fn)(first, &context);
  if (what == Kind::kContextIII) {
    reinterpret_cast<QuorlRenderFnFrameContextIII>(fn)(first, second, third, &context);
  }
}

}  // extern "C"
