// A stand-in for libQuorlBridge.so that forwards every export to the real library but breaks one
// behaviour, chosen by the environment variable QUORL_FAULT, so the tests can see the simulator catch
// it and exit non-zero:
//   drop-event      UnityRenderEvent ignores every 50th id it is asked to fire
//   map-overwrite   Map_Add overwrites the value of an existing name
//   early-shutdown  Trigger_InterfaceShutdown delivers the notice at once, scene objects or not
// Test-only; never shipped. Threads: as the real library.
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bridge/exports.h"

namespace {

void* RealLibrary() {
  static void* const handle = [] {
    void* opened = dlopen(QUORL_REAL_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (opened == nullptr) {
      std::fprintf(stderr, "faulty bridge: %s\n", dlerror());
      std::abort();
    }
    return opened;
  }();
  return handle;
}

template <typename Function>
Function Real(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RealLibrary(), name));
}

bool Fault(const char* name) {
  const char* chosen = std::getenv("QUORL_FAULT");
  return chosen != nullptr && std::strcmp(chosen, name) == 0;
}

// Set and read from whichever threads the host uses, like the real library's callback.
std::atomic<QuorlShutdownCallback> g_shutdownCallback{nullptr};
std::atomic<int> g_fired{0};

}  // namespace

#define REAL(name) Real(&::name, #name)

extern "C" {

void Lock(void) {
  REAL(Lock)();
}
void Unlock(void) {
  REAL(Unlock)();
}
intptr_t GetUnityRenderDevice(void) {
  return REAL(GetUnityRenderDevice)();
}
void SetFunc_InterfaceShutdown(QuorlShutdownCallback callback) {
  g_shutdownCallback = callback;
  REAL(SetFunc_InterfaceShutdown)(callback);
}
void Trigger_InterfaceShutdown(void) {
  const QuorlShutdownCallback callback = g_shutdownCallback.load();
  if (Fault("early-shutdown") && callback != nullptr) {
    callback();
    return;
  }
  REAL(Trigger_InterfaceShutdown)();
}

int32_t QueueGLEvent(QuorlRenderFn fn) {
  return REAL(QueueGLEvent)(fn);
}
int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  return REAL(QueueGLEventI)(fn, a);
}
int32_t QueueGLEventIII(QuorlRenderFnIII fn, int32_t a, int32_t b, int32_t c) {
  return REAL(QueueGLEventIII)(fn, a, b, c);
}
int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* y) {
  return REAL(QueueGLEventPrepFrameContextI)(fn, a, x, y);
}
int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c,
                                        void* x, void* y) {
  return REAL(QueueGLEventPrepFrameContextIII)(fn, a, b, c, x, y);
}
void UnityRenderEvent(int32_t eventId) {
  if (Fault("drop-event") && g_fired.fetch_add(1) % 50 == 49) return;
  REAL(UnityRenderEvent)(eventId);
}
intptr_t UnityRenderEventFunc(void) {
  return reinterpret_cast<intptr_t>(&UnityRenderEvent);
}

void Scene_Objects_Add(int32_t handle, const char* name, const char* type) {
  REAL(Scene_Objects_Add)(handle, name, type);
}
void Scene_Objects_Remove(int32_t handle) {
  REAL(Scene_Objects_Remove)(handle);
}
int32_t Scene_Objects_GetCount(void) {
  return REAL(Scene_Objects_GetCount)();
}
int32_t Scene_Objects_GetHandleAtIndex(int32_t index) {
  return REAL(Scene_Objects_GetHandleAtIndex)(index);
}
int32_t Scene_Objects_GetHandleFromName(const char* name) {
  return REAL(Scene_Objects_GetHandleFromName)(name);
}
bool Scene_Objects_GetNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  return REAL(Scene_Objects_GetNameFromHandle)(handle, buffer, bufferSize);
}
bool Scene_Objects_GetTypeFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  return REAL(Scene_Objects_GetTypeFromHandle)(handle, buffer, bufferSize);
}

void Map_Add(const char* name, int32_t value) {
  REAL(Map_Add)(name, value);
  if (Fault("map-overwrite")) REAL(Map_SetValue)(name, value);
}
void Map_Remove(const char* name) {
  REAL(Map_Remove)(name);
}
bool Map_Contains(const char* name) {
  return REAL(Map_Contains)(name);
}
int32_t Map_GetValue(const char* name) {
  return REAL(Map_GetValue)(name);
}
void Map_SetValue(const char* name, int32_t value) {
  REAL(Map_SetValue)(name, value);
}

void LogBuffer_Add(int32_t level, const char* text) {
  REAL(LogBuffer_Add)(level, text);
}
LogBufferView* LogBuffer_Get(void) {
  return REAL(LogBuffer_Get)();
}
void LogBuffer_Pop(void) {
  REAL(LogBuffer_Pop)();
}

void Callback_Set_OnAssetInitialised(OnAssetInitialisedCallback callback) {
  REAL(Callback_Set_OnAssetInitialised)(callback);
}
void Callback_Set_OnAssetSelectRepresentation(OnAssetSelectRepresentationCallback callback) {
  REAL(Callback_Set_OnAssetSelectRepresentation)(callback);
}
void Callback_Set_OnAssetRepresentationDataReceived(OnAssetRepresentationDataReceivedCallback callback) {
  REAL(Callback_Set_OnAssetRepresentationDataReceived)(callback);
}
void StaticHandler_OnAssetInitialised(int32_t value, void* pointer) {
  REAL(StaticHandler_OnAssetInitialised)(value, pointer);
}
bool StaticHandler_OnAssetSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0,
                                               void* pointer0, int32_t value1, void* pointer1) {
  return REAL(StaticHandler_OnAssetSelectRepresentation)(descriptor, value0, pointer0, value1, pointer1);
}
void StaticHandler_OnAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2,
                                                     int32_t value, void* pointer3, float amount) {
  REAL(StaticHandler_OnAssetRepresentationDataReceived)
  (pointer0, pointer1, pointer2, value, pointer3, amount);
}
const char* QuorlError_ToString(int32_t code) {
  return REAL(QuorlError_ToString)(code);
}

void RegisterUnityPlugin(int32_t first, int32_t second, int32_t third, const char* text) {
  REAL(RegisterUnityPlugin)(first, second, third, text);
}

}  // extern "C"
