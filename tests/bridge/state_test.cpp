#include "bridge/state.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <thread>

#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::BridgeMutexFreeForOthers;
using testing::ResetSceneObjectsAndShutdown;

int shutdownCalls = 0;
int shutdownCallsSeenByOther = 0;
void CountShutdown() {
  ++shutdownCalls;
}

class InterfaceShutdown : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetSceneObjectsAndShutdown();
    shutdownCalls = 0;
    shutdownCallsSeenByOther = 0;
  }
  void TearDown() override { ResetSceneObjectsAndShutdown(); }
};

TEST_F(InterfaceShutdown, WithoutACallbackToCallTheRequestIsForgotten) {
  Trigger_InterfaceShutdown();  // no objects and no callback
  EXPECT_FALSE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Add(1, "a", "t");
  Trigger_InterfaceShutdown();
  SetFunc_InterfaceShutdown(nullptr);  // cleared while pending: the last removal only clears the flag
  Scene_Objects_Remove(1);
  EXPECT_FALSE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Add(1, "a", "t");
  Scene_Objects_Remove(1);
  EXPECT_EQ(shutdownCalls, 0);
}

TEST_F(InterfaceShutdown, WaitsForTheLastRemovalAndCallsTheCallbackStoredThen) {
  Scene_Objects_Add(1, "a", "t");
  Scene_Objects_Add(2, "b", "t");
  Trigger_InterfaceShutdown();  // no callback yet
  EXPECT_TRUE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown([] { ++shutdownCallsSeenByOther; });
  SetFunc_InterfaceShutdown(&CountShutdown);  // replaces the first
  Scene_Objects_Add(3, "c", "t");             // adding keeps the shutdown pending
  Scene_Objects_Remove(1);
  Scene_Objects_Remove(42);  // unknown handle, others remain
  Scene_Objects_Remove(2);
  EXPECT_EQ(shutdownCalls, 0);
  EXPECT_TRUE(InterfaceShutdownPending());
  Scene_Objects_Remove(3);
  EXPECT_EQ(shutdownCalls, 1);
  EXPECT_EQ(shutdownCallsSeenByOther, 0);
  EXPECT_FALSE(InterfaceShutdownPending());
  Scene_Objects_Remove(3);  // the shutdown is complete: no second call
  EXPECT_EQ(shutdownCalls, 1);
}

TEST(BridgeMutex, EachLockNeedsItsOwnUnlockFromItsHolder) {
  Lock();
  Lock();
  Unlock();
  EXPECT_FALSE(BridgeMutexFreeForOthers());
  std::thread other([] { Unlock(); });  // not the holder: no effect
  other.join();
  EXPECT_FALSE(BridgeMutexFreeForOthers());
  Scene_Objects_GetCount();  // the holder calls other exports freely
  Unlock();
  Unlock();  // one more than taken: reports nothing
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

// The engine's tables are declared by hand: their layout must be the engine's.
static_assert(offsetof(EngineInterfaceRegistry, RegisterInterfaceSplit) == 3 * sizeof(void*));
static_assert(offsetof(IUnityGraphics, GetRenderer) == 0);
static_assert(offsetof(IUnityGraphics, ReserveEventIDRange) == 3 * sizeof(void*));
static_assert(sizeof(EngineInterfaceGuid) == 16);

// A fake engine with the engine's table layout, recording what the hooks ask of it.
struct FakeEngine {
  static inline EngineInterfaceGuid asked{};
  static inline int rendererCalls = 0;
  static inline EngineGfxDeviceEventCallback registered = nullptr;
  static inline EngineGfxDeviceEventCallback unregistered = nullptr;
  static inline IUnityGraphics graphics{};
  static inline EngineInterfaceRegistry registry{};

  static void Install() {
    registry.GetInterface = [](EngineInterfaceGuid guid) -> EngineInterface* {
      asked = guid;
      return &graphics;
    };
    graphics.GetRenderer = [] { return 16 + ++rendererCalls; };  // some renderer, never zero
    graphics.RegisterDeviceEventCallback = [](EngineGfxDeviceEventCallback callback) {
      registered = callback;
    };
    graphics.UnregisterDeviceEventCallback = [](EngineGfxDeviceEventCallback callback) {
      unregistered = callback;
    };
  }
};

TEST(EngineHooks, LoadLinksTheEngineAndDeviceShutdownTriggersTheInterfaceShutdown) {
  ResetSceneObjectsAndShutdown();
  EXPECT_EQ(GetUnityRenderDevice(), 0);  // no engine linked
  EXPECT_EQ(CurrentEngineInterfaces(), nullptr);

  FakeEngine::Install();
  Scene_Objects_Add(5, "pending", "t");
  Trigger_InterfaceShutdown();
  ASSERT_TRUE(InterfaceShutdownPending());
  PluginLoadHook(&FakeEngine::registry);
  EXPECT_EQ(CurrentEngineInterfaces(), &FakeEngine::registry);
  EXPECT_FALSE(InterfaceShutdownPending());
  EXPECT_EQ(FakeEngine::registered, &DeviceEventHandler);
  EXPECT_EQ(FakeEngine::asked.high, 0x7CBA0A9CA4DDB544ull);
  EXPECT_EQ(FakeEngine::asked.low, 0x8C5AD4926EB17B11ull);

  EXPECT_EQ(GetUnityRenderDevice(), 0);  // the renderer is asked for and not passed on
  EXPECT_EQ(FakeEngine::rendererCalls, 1);

  shutdownCalls = 0;
  SetFunc_InterfaceShutdown(&CountShutdown);
  DeviceEventHandler(kEngineGfxDeviceEventInitialize);
  DeviceEventHandler(kEngineGfxDeviceEventAfterReset);
  EXPECT_FALSE(InterfaceShutdownPending());
  DeviceEventHandler(kEngineGfxDeviceEventShutdown);
  EXPECT_TRUE(InterfaceShutdownPending());  // an object still exists
  Scene_Objects_Remove(5);
  EXPECT_EQ(shutdownCalls, 1);

  Scene_Objects_Add(6, "again", "t");
  Trigger_InterfaceShutdown();
  PluginUnloadHook();
  EXPECT_EQ(FakeEngine::unregistered, &DeviceEventHandler);
  EXPECT_EQ(CurrentEngineInterfaces(), nullptr);
  EXPECT_FALSE(InterfaceShutdownPending());
  EXPECT_EQ(GetUnityRenderDevice(), 0);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  ResetSceneObjectsAndShutdown();
}

}  // namespace
}  // namespace quorl
