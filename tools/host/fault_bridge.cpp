// A stand-in for libQuorlBridge.so with one behaviour broken, chosen by the environment variable
// QUORL_FAULT, so the tests can see quorl-host name the check that catches it:
//   drop-event      UnityRenderEvent ignores every 50th id it is asked to fire
//   map-overwrite   Map_Add overwrites the value of an existing name
//   early-shutdown  Trigger_InterfaceShutdown delivers the notice at once, scene objects or not
//   slot-leak       every 500th QueueGLEventI also takes a slot that nobody is ever told about
//   relay-amount    the data-received handler passes its float on as amount + 0, so -0 arrives as +0
//   name-cut        Scene_Objects_GetNameFromHandle reports a name cut by one character as whole
//   log-skip        every 5000th LogBuffer_Pop drops two entries
// Without a fault it behaves as the real library. It defines only the exports it may break and links the
// real library for the rest: a look-up through its handle finds its own definitions first and the real
// library's after. Test-only; never shipped. Threads: as the real library.
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "bridge/exports.h"

namespace {

bool Fault(const char* name) {
  static const char* const chosen = std::getenv("QUORL_FAULT");
  return chosen != nullptr && std::strcmp(chosen, name) == 0;
}

template <typename Function>
Function Real(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void Forgotten(int32_t) {}

// Set and read from whichever threads the host uses, like the real library's callback.
std::atomic<QuorlShutdownCallback> shutdownCallback{nullptr};
std::atomic<int> fired{0};
std::atomic<int> queued{0};
std::atomic<int> popped{0};

}  // namespace

#define REAL(name) Real(&::name, #name)

extern "C" {

void UnityRenderEvent(int32_t eventId) {
  if (Fault("drop-event") && fired.fetch_add(1) % 50 == 49) return;
  REAL(UnityRenderEvent)(eventId);
}

// The engine fires through this address, so it must lead to the stand-in's UnityRenderEvent.
intptr_t UnityRenderEventFunc(void) {
  return reinterpret_cast<intptr_t>(&UnityRenderEvent);
}

void Map_Add(const char* name, int32_t value) {
  REAL(Map_Add)(name, value);
  if (Fault("map-overwrite")) REAL(Map_SetValue)(name, value);
}

void SetFunc_InterfaceShutdown(QuorlShutdownCallback callback) {
  shutdownCallback = callback;
  REAL(SetFunc_InterfaceShutdown)(callback);
}

void Trigger_InterfaceShutdown(void) {
  const QuorlShutdownCallback callback = shutdownCallback.load();
  if (Fault("early-shutdown") && callback != nullptr) {
    callback();
    return;
  }
  REAL(Trigger_InterfaceShutdown)();
}

int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  if (Fault("slot-leak") && queued.fetch_add(1) % 500 == 499) REAL(QueueGLEventI)(&Forgotten, 0);
  return REAL(QueueGLEventI)(fn, a);
}

void StaticHandler_OnAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2,
                                                     int32_t value, void* pointer3, float amount) {
  if (Fault("relay-amount")) amount = amount + 0.0f;
  REAL(StaticHandler_OnAssetRepresentationDataReceived)
  (pointer0, pointer1, pointer2, value, pointer3, amount);
}

bool Scene_Objects_GetNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  const bool whole = REAL(Scene_Objects_GetNameFromHandle)(handle, buffer, bufferSize);
  if (Fault("name-cut") && !whole && bufferSize > 0) {
    // An off-by-one in the fit test: a name exactly one character too long is reported as whole.
    char* bigger = static_cast<char*>(std::malloc(static_cast<size_t>(bufferSize) + 1));
    const bool fitsOneMore = REAL(Scene_Objects_GetNameFromHandle)(handle, bigger, bufferSize + 1);
    std::free(bigger);
    return fitsOneMore;
  }
  return whole;
}

void LogBuffer_Pop(void) {
  if (Fault("log-skip") && popped.fetch_add(1) % 5000 == 4999) REAL(LogBuffer_Pop)();
  REAL(LogBuffer_Pop)();
}

}  // extern "C"
