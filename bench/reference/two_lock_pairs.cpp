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
using AnyFn = void (*)();

// The one slot: what to call and with which integers.
struct Call {
  Kind kind;
  AnyFn fn;
  int32_t a, b, c;
};

std::mutex slotMutex;
Call slot{Kind::kNone, nullptr, 0, 0, 0};

int32_t Store(const Call& call) {
  std::lock_guard<std::mutex> lock(slotMutex);
  slot = call;
  return kIdBase;
}

}  // namespace

extern "C" {

QUORL_EXPORT int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  return Store({Kind::kI, reinterpret_cast<AnyFn>(fn), a, 0, 0});
}

QUORL_EXPORT int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void*, void*) {
  return Store({Kind::kContextI, reinterpret_cast<AnyFn>(fn), a, 0, 0});
}

QUORL_EXPORT int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b,
                                                     int32_t c, void*, void*) {
  return Store({Kind::kContextIII, reinterpret_cast<AnyFn>(fn), a, b, c});
}

QUORL_EXPORT void UnityRenderEvent(int32_t eventId) {
  Call call;
  {
    std::lock_guard<std::mutex> lock(slotMutex);
    call = slot;
    slot.kind = Kind::kNone;
  }
  if (eventId != kIdBase) return;
  FrameContext context{24, 0, 0, 0};
  if (call.kind == Kind::kI) reinterpret_cast<QuorlRenderFnI>(call.fn)(call.a);
  if (call.kind == Kind::kContextI) {
    reinterpret_cast<QuorlRenderFnFrameContextI>(call.fn)(call.a, &context);
  }
  if (call.kind == Kind::kContextIII) {
    reinterpret_cast<QuorlRenderFnFrameContextIII>(call.fn)(call.a, call.b, call.c, &context);
  }
}

}  // extern "C"
