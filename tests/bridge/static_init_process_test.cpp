// Every export works from the moment the library is loaded: here a static constructor, which may run
// before or after the library's own, calls all 35 exports before main, registration last.
#include <gtest/gtest.h>

#include "bridge/exports.h"

namespace {

int ranBeforeMain = 0;

struct EarlyCaller {
  int32_t ids[5] = {};
  intptr_t renderEventFunc = 0;
  int rightAnswers = 0;

  EarlyCaller() {
    char buffer[16];
    Lock();
    SetFunc_InterfaceShutdown([] { ranBeforeMain += 100000; });
    Trigger_InterfaceShutdown();  // nothing registered yet: runs at once
    Scene_Objects_Add(11, "early", "static");
    Scene_Objects_Add(12, "gone", "static");
    Scene_Objects_Remove(12);
    rightAnswers += Scene_Objects_GetHandleAtIndex(0) == 11;
    rightAnswers += Scene_Objects_GetNameFromHandle(11, buffer, sizeof buffer);
    rightAnswers += Scene_Objects_GetTypeFromHandle(11, buffer, sizeof buffer);
    rightAnswers += Scene_Objects_GetCount() == 1 && Scene_Objects_GetHandleFromName("early") == 11;
    Map_Add("early", 5);
    Map_SetValue("early", 6);
    Map_Add("gone", 1);
    Map_Remove("gone");
    rightAnswers += Map_Contains("early") && Map_GetValue("early") == 6;
    LogBuffer_Add(3, "popped before main");
    LogBuffer_Add(4, "kept");
    rightAnswers += LogBuffer_Get() != nullptr;
    LogBuffer_Pop();
    Unlock();

    ids[0] = QueueGLEvent([] { ranBeforeMain += 1; });
    ids[1] = QueueGLEventI([](int32_t a) { ranBeforeMain += a; }, 10);
    ids[2] =
        QueueGLEventIII([](int32_t a, int32_t b, int32_t c) { ranBeforeMain += a + b + c; }, 100, 200, 300);
    ids[3] = QueueGLEventPrepFrameContextI(
        [](int32_t a, const FrameContext* context) { ranBeforeMain += a + (context->structSize == 24); },
        1000, nullptr, nullptr);
    ids[4] = QueueGLEventPrepFrameContextIII(
        [](int32_t a, int32_t, int32_t, const FrameContext*) { ranBeforeMain += a; }, 10000, 0, 0, nullptr,
        nullptr);
    renderEventFunc = UnityRenderEventFunc();
    rightAnswers += GetUnityRenderDevice() == 0;

    Callback_Set_OnAssetInitialised(nullptr);
    Callback_Set_OnAssetSelectRepresentation(nullptr);
    Callback_Set_OnAssetRepresentationDataReceived(nullptr);
    StaticHandler_OnAssetInitialised(1, nullptr);
    StaticHandler_OnAssetRepresentationDataReceived(nullptr, nullptr, nullptr, 0, nullptr, 1.0f);
    RepresentationDescriptor descriptor{"video/mp4", "k"};
    rightAnswers += StaticHandler_OnAssetSelectRepresentation(&descriptor, 0, nullptr, 0, nullptr);
    rightAnswers += QuorlError_ToString(0)[0] == 'S';
    RegisterUnityPlugin(1, 2, 3, "static constructor");
  }
};
EarlyCaller early;

TEST(StaticInitialisation, WhatWasDoneBeforeMainIsStillThere) {
  EXPECT_EQ(early.rightAnswers, 9);
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(early.ids[i], 16000 + i);
  auto fire = reinterpret_cast<void (*)(int32_t)>(early.renderEventFunc);
  ASSERT_EQ(fire, &UnityRenderEvent);
  for (int32_t id : early.ids)
    fire(id);
  EXPECT_EQ(ranBeforeMain, 100000 + 1 + 10 + 600 + 1001 + 10000);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("early"), 11);
  EXPECT_EQ(Map_GetValue("early"), 6);
  ASSERT_NE(LogBuffer_Get(), nullptr);
  EXPECT_STREQ(LogBuffer_Get()->message, "kept");
}

}  // namespace
