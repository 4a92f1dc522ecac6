#include "bridge/state.h"

#include <pthread.h>

#include <system_error>

#include "bridge/scene_objects.h"

namespace quorl {

namespace {

pthread_mutex_t bridgeMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

EngineInterfaceRegistry* engineInterfaces = nullptr;
QuorlShutdownCallback interfaceShutdownCallback = nullptr;  // guarded by the bridge mutex
bool interfaceShutdownPending = false;  // guarded by the bridge mutex, except in the two hooks

IUnityGraphics* Graphics() {
  // The engine's answer is trusted and not tested for null.
  return static_cast<IUnityGraphics*>(engineInterfaces->GetInterface(kIUnityGraphicsGuid));
}

}  // namespace

void LockBridgeMutex() {
  const int error = pthread_mutex_lock(&bridgeMutex);
  if (error != 0) throw std::system_error(error, std::generic_category());
}

void UnlockBridgeMutex() noexcept {
  (void)pthread_mutex_unlock(&bridgeMutex);
}

bool TryLockBridgeMutex() noexcept {
  return pthread_mutex_trylock(&bridgeMutex) == 0;
}

void SetInterfaceShutdownCallback(QuorlShutdownCallback callback) {
  BridgeLock lock;
  interfaceShutdownCallback = callback;
}

void TriggerInterfaceShutdown() {
  BridgeLock lock;
  if (SceneObjectCount() != 0) {
    interfaceShutdownPending = true;
    return;
  }
  // With nothing registered the shutdown completes at once; it is not remembered without a callback.
  if (interfaceShutdownCallback != nullptr) interfaceShutdownCallback();
}

void CompletePendingShutdownIfEmpty(bool registryEmpty) {
  if (!registryEmpty || !interfaceShutdownPending) return;
  if (interfaceShutdownCallback != nullptr) interfaceShutdownCallback();
  // Cleared after the callback: a callback that throws leaves the shutdown pending.
  interfaceShutdownPending = false;
}

bool InterfaceShutdownPending() {
  BridgeLock lock;
  return interfaceShutdownPending;
}

intptr_t GetRenderDevice() {
  if (engineInterfaces == nullptr) return 0;
  // The renderer is asked for and deliberately not passed on.
  (void)Graphics()->GetRenderer();
  return 0;
}

void PluginLoadHook(EngineInterfaceRegistry* interfaces) {
  engineInterfaces = interfaces;
  Graphics()->RegisterDeviceEventCallback(&DeviceEventHandler);
  interfaceShutdownPending = false;
  // The initialise event's locking step; it changes nothing and stays.
  LockBridgeMutex();
  UnlockBridgeMutex();
}

void PluginUnloadHook() {
  // No test of the engine link first: an unload without a load faults, as the engine never does that.
  Graphics()->UnregisterDeviceEventCallback(&DeviceEventHandler);
  engineInterfaces = nullptr;
  interfaceShutdownPending = false;
}

void DeviceEventHandler(int32_t eventType) {
  BridgeLock lock;
  if (eventType == kEngineGfxDeviceEventShutdown) TriggerInterfaceShutdown();
}

EngineInterfaceRegistry* CurrentEngineInterfaces() {
  return engineInterfaces;
}

}  // namespace quorl
