// Every export works from the moment the library is loaded: here a static constructor, which may run
// before or after the library's own, calls the exports before main and before any registration.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bridge/exports.h"

namespace {

int ranBeforeMain = 0;
void CountRun(int32_t a) {
  ranBeforeMain += a;
}

struct EarlyCaller {
  int32_t eventId = 0;
  EarlyCaller() {
    Lock();
    Scene_Objects_Add(11, "early", "static");
    Map_Add("early", 5);
    LogBuffer_Add(3, "before main");
    Unlock();
    eventId = QueueGLEventI(&CountRun, 2);
  }
};
EarlyCaller early;

TEST(StaticInitialisation, WhatWasDoneBeforeMainIsStillThere) {
  EXPECT_EQ(early.eventId, 16000);
  UnityRenderEvent(early.eventId);
  EXPECT_EQ(ranBeforeMain, 2);
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("early"), 11);
  EXPECT_EQ(Map_GetValue("early"), 5);
  ASSERT_NE(LogBuffer_Get(), nullptr);
  EXPECT_STREQ(LogBuffer_Get()->message, "before main");
  EXPECT_EQ(GetUnityRenderDevice(), 0);
  EXPECT_STREQ(QuorlError_ToString(0), "Success");
}

}  // namespace
