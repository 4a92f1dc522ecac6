#include "bridge/state.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

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
void OtherShutdown() {
  ++shutdownCallsSeenByOther;
}
void ThrowingShutdown() {
  throw std::runtime_error("host refused");
}
void ShutdownThatAddsAnObject() {
  ++shutdownCalls;
  Scene_Objects_Add(99, "late", "added from the callback");
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

TEST_F(InterfaceShutdown, WithNoObjectsTheCallbackRunsAtOnceForEachTrigger) {
  SetFunc_InterfaceShutdown(&CountShutdown);
  Trigger_InterfaceShutdown();
  EXPECT_EQ(shutdownCalls, 1);
  Trigger_InterfaceShutdown();
  EXPECT_EQ(shutdownCalls, 2);
  EXPECT_FALSE(InterfaceShutdownPending());
}

TEST_F(InterfaceShutdown, WithNoObjectsAndNoCallbackNothingIsRemembered) {
  Trigger_InterfaceShutdown();
  EXPECT_FALSE(InterfaceShutdownPending());
  Scene_Objects_Add(1, "a", "t");
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Remove(1);
  EXPECT_EQ(shutdownCalls, 0);
}

TEST_F(InterfaceShutdown, WaitsForTheLastRemovalAndCallsTheCallbackStoredThen) {
  Scene_Objects_Add(1, "a", "t");
  Scene_Objects_Add(2, "b", "t");
  Trigger_InterfaceShutdown();  // no callback yet
  EXPECT_TRUE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown(&OtherShutdown);
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

TEST_F(InterfaceShutdown, ClearingTheCallbackWhilePendingOnlyClearsTheFlag) {
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Add(1, "a", "t");
  Trigger_InterfaceShutdown();
  SetFunc_InterfaceShutdown(nullptr);
  Scene_Objects_Remove(1);
  EXPECT_FALSE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Add(1, "a", "t");
  Scene_Objects_Remove(1);
  EXPECT_EQ(shutdownCalls, 0);
}

TEST_F(InterfaceShutdown, TheCallbackMayCallBackIntoTheLibrary) {
  SetFunc_InterfaceShutdown(&ShutdownThatAddsAnObject);
  Trigger_InterfaceShutdown();
  EXPECT_EQ(shutdownCalls, 1);
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

TEST_F(InterfaceShutdown, AThrowingCallbackReleasesTheMutexAndLeavesTheShutdownPending) {
  SetFunc_InterfaceShutdown(&ThrowingShutdown);
  EXPECT_THROW(Trigger_InterfaceShutdown(), std::runtime_error);
  EXPECT_TRUE(BridgeMutexFreeForOthers());

  Scene_Objects_Add(1, "a", "t");
  Trigger_InterfaceShutdown();
  EXPECT_THROW(Scene_Objects_Remove(1), std::runtime_error);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  EXPECT_EQ(Scene_Objects_GetCount(), 0);
  EXPECT_TRUE(InterfaceShutdownPending());
  SetFunc_InterfaceShutdown(&CountShutdown);
  Scene_Objects_Remove(7);  // any removal on the empty registry completes it now
  EXPECT_EQ(shutdownCalls, 1);
  EXPECT_FALSE(InterfaceShutdownPending());
}

TEST(BridgeMutex, EachLockNeedsItsOwnUnlock) {
  Lock();
  Lock();
  Unlock();
  EXPECT_FALSE(BridgeMutexFreeForOthers());
  Scene_Objects_GetCount();  // the holder calls other exports freely
  Unlock();
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

TEST(BridgeMutex, UnlockWithoutHoldingHasNoEffect) {
  Lock();
  std::thread other([] { Unlock(); });
  other.join();
  EXPECT_FALSE(BridgeMutexFreeForOthers());
  Unlock();
  Unlock();  // one more than taken: reports nothing
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

TEST(BridgeMutex, HoldingItMakesARunOfCallsOneStep) {
  Lock();
  std::thread writer([] { Map_Add("held-run", 1); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(Map_Contains("held-run"));
  Unlock();
  writer.join();
  EXPECT_TRUE(Map_Contains("held-run"));
  Map_Remove("held-run");
}

// A fake engine with the engine's table layout, recording what the hooks ask of it.
struct FakeEngine {
  static inline std::vector<EngineInterfaceGuid> asked;
  static inline int rendererCalls = 0;
  static inline EngineGfxDeviceEventCallback registered = nullptr;
  static inline EngineGfxDeviceEventCallback unregistered = nullptr;
  static inline IUnityGraphics graphics{};
  static inline EngineInterfaceRegistry registry{};

  static EngineInterface* GetInterface(EngineInterfaceGuid guid) {
    asked.push_back(guid);
    return &graphics;
  }
  static int32_t GetRenderer() {
    ++rendererCalls;
    return 17;
  }
  static void Register(EngineGfxDeviceEventCallback callback) { registered = callback; }
  static void Unregister(EngineGfxDeviceEventCallback callback) { unregistered = callback; }

  static void Install() {
    graphics.GetRenderer = &GetRenderer;
    graphics.RegisterDeviceEventCallback = &Register;
    graphics.UnregisterDeviceEventCallback = &Unregister;
    registry.GetInterface = &GetInterface;
  }
};

TEST(EngineHooks, TablesHaveTheEngineLayout) {
  EXPECT_EQ(offsetof(EngineInterfaceRegistry, GetInterface), 0u);
  EXPECT_EQ(offsetof(EngineInterfaceRegistry, RegisterInterfaceSplit), 3 * sizeof(void*));
  EXPECT_EQ(offsetof(IUnityGraphics, GetRenderer), 0u);
  EXPECT_EQ(offsetof(IUnityGraphics, ReserveEventIDRange), 3 * sizeof(void*));
  EXPECT_EQ(sizeof(EngineInterfaceGuid), 16u);
}

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
  ASSERT_FALSE(FakeEngine::asked.empty());
  EXPECT_EQ(FakeEngine::asked[0].high, 0x7CBA0A9CA4DDB544ull);
  EXPECT_EQ(FakeEngine::asked[0].low, 0x8C5AD4926EB17B11ull);

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
