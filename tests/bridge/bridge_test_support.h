// Helpers shared by the tests of the exported surface. Bridge state lives for the whole test process,
// so each test leaves what it touched as it found it.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "bridge/exports.h"
#include "bridge/render_events.h"
#include "bridge/state.h"

namespace quorl::testing {

// True when another thread can take the bridge mutex at once: no export left it held.
inline bool BridgeMutexFreeForOthers() {
  bool free = false;
  std::thread other([&free] {
    free = TryLockBridgeMutex();
    if (free) UnlockBridgeMutex();
  });
  other.join();
  return free;
}

// Runs `call` and expects the null-text logic error with its exact message.
template <typename Call>
void ExpectNullTextError(Call call) {
  try {
    call();
    ADD_FAILURE() << "expected std::logic_error";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
  }
}

// Empties the scene object registry and the pending shutdown, and clears the shutdown callback.
inline void ResetSceneObjectsAndShutdown() {
  SetFunc_InterfaceShutdown(nullptr);
  for (int32_t left = Scene_Objects_GetCount(); left > 0; --left)  // bounded, should removal fail
    Scene_Objects_Remove(Scene_Objects_GetHandleAtIndex(0));
  Scene_Objects_Remove(0);  // on an empty registry this clears a pending shutdown
}

// Fires every slot, so that each one is free and the next event queued gets 16000.
inline void FreeAllRenderEventSlots() {
  const int32_t count = RenderEventSlotCount();
  for (int32_t i = 0; i < count; ++i)
    UnityRenderEvent(kRenderEventIdBase + i);
}

}  // namespace quorl::testing
