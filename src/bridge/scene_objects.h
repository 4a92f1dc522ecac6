// The scene object registry: a list of scene objects known by the caller's integer handle, a name and a
// type text, in order of insertion; and the gate of the interface shutdown (the removal that leaves it
// empty completes a pending shutdown).
//
// The registry owns its records; no pointer to one leaves this unit. Handles are opaque and need not be
// unique. Every operation takes the bridge mutex for its whole length; results are current only while
// it is held, so a caller that combines calls (count, then index) holds Lock across them.
#pragma once

#include <cstdint>

namespace quorl {

void AddSceneObject(int32_t handle, const char* name, const char* type);
// Removes every record with `handle`, then completes a pending shutdown if the registry is empty.
void RemoveSceneObject(int32_t handle);
int32_t SceneObjectCount();
int32_t SceneObjectHandleAtIndex(int32_t index);
int32_t SceneObjectHandleFromName(const char* name);
bool SceneObjectNameFromHandle(int32_t handle, char* buffer, int32_t bufferSize);
bool SceneObjectTypeFromHandle(int32_t handle, char* buffer, int32_t bufferSize);

}  // namespace quorl
