// A stand-in for libQuorlBridge.so with one behaviour broken, chosen by the environment variable
// QUORL_FAULT, so the tests can see quorl-host name the check that catches it:
//   drop-event      UnityRenderEvent ignores every 50th id it is asked to fire
//   map-overwrite   Map_Add overwrites the value of an existing name
//   early-shutdown  Trigger_InterfaceShutdown delivers the notice at once, scene objects or not
//   slot-leak       every 500th QueueGLEventI also takes a slot that nobody is ever told about
//   relay-amount    the data-received handler passes its float on as amount + 0, so -0 arrives as +0
//   name-cut        Scene_Objects_GetNameFromHandle reports a name cut by one character as whole
//   log-skip        every 5000th LogBuffer_Pop drops two entries
// Without a fault it is the real library: it defines only the exports it may break and links the real
// library, whose definitions a look-up through its handle finds next. Test-only; never shipped. Threads:
// as the real library.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bridge/exports.h"

namespace {

// True on every `period`th call when `name` is the fault chosen.
template <int kPeriod>
bool Fault(const char* name) {
  static const char* const chosen = std::getenv("QUORL_FAULT");
  static std::atomic<int> calls{0};
  return chosen != nullptr && std::strcmp(chosen, name) == 0 && calls.fetch_add(1) % kPeriod == kPeriod - 1;
}

template <typename Function>
Function Real(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Set and read from whichever threads the host uses, like the real library's callback.
std::atomic<QuorlShutdownCallback> shutdownCallback{nullptr};

}  // namespace

#define REAL(name) Real(&::name, #name)

extern "C" {

void UnityRenderEvent(int32_t eventId) {
  if (!Fault<50>("drop-event")) REAL(UnityRenderEvent)(eventId);
}

// The engine fires through this address, so it must lead to the stand-in's UnityRenderEvent.
intptr_t UnityRenderEventFunc(void) {
  return reinterpret_cast<intptr_t>(&UnityRenderEvent);
}

void Map_Add(const char* name, int32_t value) {
  REAL(Map_Add)(name, value);
  if (Fault<1>("map-overwrite")) REAL(Map_SetValue)(name, value);
}

void SetFunc_InterfaceShutdown(QuorlShutdownCallback callback) {
  shutdownCallback = callback;
  REAL(SetFunc_InterfaceShutdown)(callback);
}

void Trigger_InterfaceShutdown(void) {
  const QuorlShutdownCallback callback = shutdownCallback.load();
  if (Fault<1>("early-shutdown") && callback != nullptr) return callback();
  REAL(Trigger_InterfaceShutdown)();
}

int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  if (Fault<500>("slot-leak")) REAL(QueueGLEventI)([](int32_t) {}, 0);
  return REAL(QueueGLEventI)(fn, a);
}

void StaticHandler_OnAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2,
                                                     int32_t value, void* pointer3, float amount) {
  if (Fault<1>("relay-amount")) amount = amount + 0.0f;
  const auto real = REAL(StaticHandler_OnAssetRepresentationDataReceived);
  real(pointer0, pointer1, pointer2, value, pointer3, amount);
}

bool Scene_Objects_GetNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  const bool whole = REAL(Scene_Objects_GetNameFromHandle)(handle, buffer, bufferSize);
  if (whole || bufferSize <= 0 || !Fault<1>("name-cut")) return whole;
  // An off-by-one in the fit test: a name exactly one character too long is reported as whole.
  std::vector<char> bigger(static_cast<size_t>(bufferSize) + 1);
  return REAL(Scene_Objects_GetNameFromHandle)(handle, bigger.data(), bufferSize + 1);
}

void LogBuffer_Pop(void) {
  if (Fault<5000>("log-skip")) REAL(LogBuffer_Pop)();
  REAL(LogBuffer_Pop)();
}

}  // extern "C"
