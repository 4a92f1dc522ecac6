// The flat exported entry points. Each forwards at once to the bridge's C++; no logic lives here.
// Exceptions are not caught: they reach the caller with every lock released.
#include "bridge/exports.h"

#include "bridge/asset_relay.h"
#include "bridge/log_buffer.h"
#include "bridge/named_integers.h"
#include "bridge/registration.h"
#include "bridge/render_events.h"
#include "bridge/scene_objects.h"
#include "bridge/state.h"

using quorl::RenderEventClosure;

extern "C" {

void Lock(void) {
  quorl::LockBridgeMutex();
}
void Unlock(void) {
  quorl::UnlockBridgeMutex();
}
intptr_t GetUnityRenderDevice(void) {
  return quorl::GetRenderDevice();
}
void SetFunc_InterfaceShutdown(QuorlShutdownCallback callback) {
  quorl::SetInterfaceShutdownCallback(callback);
}
void Trigger_InterfaceShutdown(void) {
  quorl::TriggerInterfaceShutdown();
}

int32_t QueueGLEvent(QuorlRenderFn fn) {
  return quorl::QueueRenderEvent(RenderEventClosure([fn] { fn(); }));
}

int32_t QueueGLEventI(QuorlRenderFnI fn, int32_t a) {
  return quorl::QueueRenderEvent(RenderEventClosure([fn, a] { fn(a); }));
}

int32_t QueueGLEventIII(QuorlRenderFnIII fn, int32_t a, int32_t b, int32_t c) {
  return quorl::QueueRenderEvent(RenderEventClosure([fn, a, b, c] { fn(a, b, c); }));
}

int32_t QueueGLEventPrepFrameContextI(QuorlRenderFnFrameContextI fn, int32_t a, void* x, void* y) {
  return quorl::QueueRenderEvent(
      RenderEventClosure([fn, a, x, y] { quorl::RunWithFrameContextI(fn, a, x, y); }));
}

int32_t QueueGLEventPrepFrameContextIII(QuorlRenderFnFrameContextIII fn, int32_t a, int32_t b, int32_t c,
                                        void* x, void* y) {
  return quorl::QueueRenderEvent(
      RenderEventClosure([fn, a, b, c, x, y] { quorl::RunWithFrameContextIII(fn, a, b, c, x, y); }));
}

void UnityRenderEvent(int32_t eventId) {
  quorl::FireRenderEvent(eventId);
}

intptr_t UnityRenderEventFunc(void) {
  return reinterpret_cast<intptr_t>(&UnityRenderEvent);
}

void Scene_Objects_Add(int32_t handle, const char* name, const char* type) {
  quorl::AddSceneObject(handle, name, type);
}
void Scene_Objects_Remove(int32_t handle) {
  quorl::RemoveSceneObject(handle);
}
int32_t Scene_Objects_GetCount(void) {
  return quorl::SceneObjectCount();
}
int32_t Scene_Objects_GetHandleAtIndex(int32_t index) {
  return quorl::SceneObjectHandleAtIndex(index);
}
int32_t Scene_Objects_GetHandleFromName(const char* name) {
  return quorl::SceneObjectHandleFromName(name);
}
bool Scene_Objects_GetNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  return quorl::SceneObjectNameFromHandle(handle, buffer, bufferSize);
}
bool Scene_Objects_GetTypeFromHandle(int32_t handle, char* buffer, int32_t bufferSize) {
  return quorl::SceneObjectTypeFromHandle(handle, buffer, bufferSize);
}

void Map_Add(const char* name, int32_t value) {
  quorl::AddNamedInteger(name, value);
}
void Map_Remove(const char* name) {
  quorl::RemoveNamedInteger(name);
}
bool Map_Contains(const char* name) {
  return quorl::ContainsNamedInteger(name);
}
int32_t Map_GetValue(const char* name) {
  return quorl::GetNamedInteger(name);
}
void Map_SetValue(const char* name, int32_t value) {
  quorl::SetNamedInteger(name, value);
}

void LogBuffer_Add(int32_t level, const char* text) {
  quorl::AddLogBufferEntry(level, text);
}
LogBufferView* LogBuffer_Get(void) {
  return quorl::GetLogBufferFront();
}
void LogBuffer_Pop(void) {
  quorl::PopLogBufferFront();
}

void Callback_Set_OnAssetInitialised(OnAssetInitialisedCallback callback) {
  quorl::SetAssetInitialisedCallback(callback);
}
void Callback_Set_OnAssetSelectRepresentation(OnAssetSelectRepresentationCallback callback) {
  quorl::SetAssetSelectRepresentationCallback(callback);
}
void Callback_Set_OnAssetRepresentationDataReceived(OnAssetRepresentationDataReceivedCallback callback) {
  quorl::SetAssetRepresentationDataReceivedCallback(callback);
}
void StaticHandler_OnAssetInitialised(int32_t value, void* pointer) {
  quorl::RelayAssetInitialised(value, pointer);
}
bool StaticHandler_OnAssetSelectRepresentation(RepresentationDescriptor* descriptor, int32_t value0,
                                               void* pointer0, int32_t value1, void* pointer1) {
  return quorl::RelayAssetSelectRepresentation(descriptor, value0, pointer0, value1, pointer1);
}
void StaticHandler_OnAssetRepresentationDataReceived(void* pointer0, void* pointer1, void* pointer2,
                                                     int32_t value, void* pointer3, float amount) {
  quorl::RelayAssetRepresentationDataReceived(pointer0, pointer1, pointer2, value, pointer3, amount);
}
const char* QuorlError_ToString(int32_t code) {
  return quorl::QuorlErrorText(code);
}

void RegisterUnityPlugin(int32_t first, int32_t second, int32_t third, const char* text) {
  quorl::RegisterPlugin(first, second, third, text);
}

}  // extern "C"
