// The process-wide state of the bridge that is not owned by one container: the recursive bridge mutex
// with Lock and Unlock, the link to the engine's interfaces, and the two-step interface shutdown.
//
// All of it is constant-initialised, so every export works from the moment the library is loaded, also
// when another library's static constructor calls first. The bridge mutex guards the scene objects, the
// named integers, the log buffer, the asset callbacks and the shutdown state; it is recursive, and the
// host's shutdown and asset callbacks run with it held (they may call back into the library). The engine
// hooks are internal: nothing in the library calls them or takes their addresses, so as built the engine
// never enters them and the engine link stays null.
#pragma once

#include <cstdint>

#include "bridge/engine_interfaces.h"
#include "bridge/exports.h"

namespace quorl {

// Takes the bridge mutex; a failure raises std::system_error with the mutex's error number.
void LockBridgeMutex();
// Releases it and ignores the outcome (an unlock by a thread that does not hold it does nothing).
void UnlockBridgeMutex() noexcept;
// Takes it only if that is possible at once; for tests that check that no export kept it.
bool TryLockBridgeMutex() noexcept;

// Holds the bridge mutex for a scope; released on every path out, exceptions included.
class BridgeLock {
 public:
  BridgeLock() { LockBridgeMutex(); }
  ~BridgeLock() { UnlockBridgeMutex(); }
  BridgeLock(const BridgeLock&) = delete;
  BridgeLock& operator=(const BridgeLock&) = delete;
};

void SetInterfaceShutdownCallback(QuorlShutdownCallback callback);
void TriggerInterfaceShutdown();
// Called by the scene object registry, under the bridge mutex, after every removal.
void CompletePendingShutdownIfEmpty(bool registryEmpty);
bool InterfaceShutdownPending();

// Always zero; asks the engine for its renderer when linked to one, and drops the answer.
intptr_t GetRenderDevice();

// The engine's entry points, with the engine's signatures.
void PluginLoadHook(EngineInterfaceRegistry* interfaces);
void PluginUnloadHook();
void DeviceEventHandler(int32_t eventType);
EngineInterfaceRegistry* CurrentEngineInterfaces();

}  // namespace quorl
