// Every export works from the moment the library is loaded: here a static constructor, which may run
// before or after the library's own, calls all 35 exports before main, registration last.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bridge/exports.h"

namespace {

int ranBeforeMain = 0;
int shutdownsBeforeMain = 0;
void Count0() {
  ranBeforeMain += 1;
}
void CountI(int32_t a) {
  ranBeforeMain += a;
}
void CountIII(int32_t a, int32_t b, int32_t c) {
  ranBeforeMain += a + b + c;
}
void CountContextI(int32_t a, const FrameContext* context) {
  ranBeforeMain += a + (context->structSize == 24);
}
void CountContextIII(int32_t a, int32_t b, int32_t c, const FrameContext*) {
  ranBeforeMain += a + b + c;
}
void CountShutdown() {
  ++shutdownsBeforeMain;
}

struct EarlyCaller {
  int32_t ids[5] = {};
  bool selected = false;
  int32_t handleAtZero = 0;
  bool nameFound = false;
  bool typeFound = false;
  intptr_t renderDevice = -1;
  intptr_t renderEventFunc = 0;

  EarlyCaller() {
    Lock();
    SetFunc_InterfaceShutdown(&CountShutdown);
    Trigger_InterfaceShutdown();  // nothing registered yet: runs at once
    Scene_Objects_Add(11, "early", "static");
    Scene_Objects_Add(12, "gone", "static");
    Scene_Objects_Remove(12);
    handleAtZero = Scene_Objects_GetHandleAtIndex(0);
    char buffer[16];
    nameFound = Scene_Objects_GetNameFromHandle(11, buffer, sizeof buffer);
    typeFound = Scene_Objects_GetTypeFromHandle(11, buffer, sizeof buffer);
    Map_Add("early", 5);
    Map_SetValue("early", 6);
    Map_Add("gone", 1);
    Map_Remove("gone");
    LogBuffer_Add(3, "before main");
    LogBuffer_Add(4, "popped before main");
    Unlock();

    ids[0] = QueueGLEvent(&Count0);
    ids[1] = QueueGLEventI(&CountI, 10);
    ids[2] = QueueGLEventIII(&CountIII, 100, 200, 300);
    ids[3] = QueueGLEventPrepFrameContextI(&CountContextI, 1000, nullptr, nullptr);
    ids[4] = QueueGLEventPrepFrameContextIII(&CountContextIII, 10000, 0, 0, nullptr, nullptr);
    renderEventFunc = UnityRenderEventFunc();
    renderDevice = GetUnityRenderDevice();

    Callback_Set_OnAssetInitialised(nullptr);
    Callback_Set_OnAssetSelectRepresentation(nullptr);
    Callback_Set_OnAssetRepresentationDataReceived(nullptr);
    StaticHandler_OnAssetInitialised(1, nullptr);
    StaticHandler_OnAssetRepresentationDataReceived(nullptr, nullptr, nullptr, 0, nullptr, 1.0f);
    RepresentationDescriptor descriptor{"video/mp4", "k"};
    selected = StaticHandler_OnAssetSelectRepresentation(&descriptor, 0, nullptr, 0, nullptr);
    (void)QuorlError_ToString(0);
    (void)Scene_Objects_GetCount();
    (void)Scene_Objects_GetHandleFromName("early");
    (void)Map_Contains("early");
    (void)Map_GetValue("early");
    (void)LogBuffer_Get();
    RegisterUnityPlugin(1, 2, 3, "static constructor");
  }
};
EarlyCaller early;

TEST(StaticInitialisation, WhatWasDoneBeforeMainIsStillThere) {
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(early.ids[i], 16000 + i);
  auto fire = reinterpret_cast<void (*)(int32_t)>(early.renderEventFunc);
  ASSERT_EQ(fire, &UnityRenderEvent);
  for (int32_t id : early.ids)
    fire(id);
  EXPECT_EQ(ranBeforeMain, 1 + 10 + 600 + 1001 + 10000);
  EXPECT_EQ(shutdownsBeforeMain, 1);
  EXPECT_EQ(early.renderDevice, 0);
  EXPECT_TRUE(early.selected);
  EXPECT_EQ(early.handleAtZero, 11);
  EXPECT_TRUE(early.nameFound);
  EXPECT_TRUE(early.typeFound);
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("early"), 11);
  EXPECT_EQ(Map_GetValue("early"), 6);
  EXPECT_FALSE(Map_Contains("gone"));
  ASSERT_NE(LogBuffer_Get(), nullptr);
  EXPECT_STREQ(LogBuffer_Get()->message, "before main");
  LogBuffer_Pop();
  EXPECT_STREQ(LogBuffer_Get()->message, "popped before main");
}

}  // namespace
