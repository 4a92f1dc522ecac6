// The representation policy's selection key lives as long as the library and is never reset, so these
// tests run in a process of their own, in the order written.
#include "bridge/asset_relay.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::BridgeMutexFreeForOthers;

bool Offer(const char* mediaType, const char* selectionKey) {
  RepresentationDescriptor descriptor{mediaType, selectionKey};
  return StaticHandler_OnAssetSelectRepresentation(&descriptor, 0, nullptr, 0, nullptr);
}

struct Seen {
  RepresentationDescriptor* descriptor = nullptr;
  int32_t value0 = 0;
  void* pointer0 = nullptr;
  int32_t value1 = 0;
  void* pointer1 = nullptr;
  int calls = 0;
  bool othersLockedOut = false;  // another thread could not take the bridge mutex during the call
};
Seen seen;
bool hostAnswer = false;

bool HostSelect(RepresentationDescriptor* d, int32_t v0, void* p0, int32_t v1, void* p1) {
  seen = Seen{d, v0, p0, v1, p1, seen.calls + 1, !BridgeMutexFreeForOthers()};
  return hostAnswer;
}

TEST(AssetRelay, PolicyAcceptsWhatIsNotVolumetricAndFixesNothing) {
  EXPECT_TRUE(Offer("video/mp4", "A"));
  EXPECT_TRUE(Offer("volumetric", "B"));    // the prefix without its slash
  EXPECT_TRUE(Offer("Volumetric/x", "C"));  // the prefix is matched exactly
  EXPECT_TRUE(Offer("", "D"));
  EXPECT_EQ(ChosenSelectionKey(), "");
}

TEST(AssetRelay, PolicyRefusesANullKeyBeforeAnyIsFixed) {
  testing::ExpectNullTextError([] { Offer("volumetric/mesh", nullptr); });
  EXPECT_EQ(ChosenSelectionKey(), "");
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

TEST(AssetRelay, PolicyLetsAnEmptyKeyLeaveTheChoiceOpen) {
  EXPECT_TRUE(Offer("volumetric/mesh", ""));
  EXPECT_EQ(ChosenSelectionKey(), "");
}

TEST(AssetRelay, PolicyFixesTheFirstVolumetricKeyForGood) {
  EXPECT_TRUE(Offer("volumetric/mesh", "A"));
  EXPECT_FALSE(Offer("volumetric/mesh", "B"));
  EXPECT_TRUE(Offer("volumetric/pointcloud", "A"));
  EXPECT_FALSE(Offer("volumetric/", ""));
  EXPECT_TRUE(Offer("audio/aac", "B"));
  EXPECT_EQ(ChosenSelectionKey(), "A");
}

TEST(AssetRelay, AHostCallbackDecidesAloneAndTheKeyStandsWhenItIsCleared) {
  Callback_Set_OnAssetSelectRepresentation(&HostSelect);
  int a = 0;
  int b = 0;
  RepresentationDescriptor descriptor{"volumetric/mesh", "B"};
  hostAnswer = true;
  EXPECT_TRUE(StaticHandler_OnAssetSelectRepresentation(&descriptor, 11, &a, -12, &b));
  EXPECT_EQ(seen.descriptor, &descriptor);
  EXPECT_EQ(seen.value0, 11);
  EXPECT_EQ(seen.pointer0, &a);
  EXPECT_EQ(seen.value1, -12);
  EXPECT_EQ(seen.pointer1, &b);
  EXPECT_TRUE(seen.othersLockedOut) << "the host decides under the bridge mutex";
  hostAnswer = false;
  EXPECT_FALSE(Offer("video/mp4", "A"));
  EXPECT_EQ(seen.calls, 2);
  EXPECT_EQ(ChosenSelectionKey(), "A");  // neither read nor written while the host decides

  Callback_Set_OnAssetSelectRepresentation(nullptr);
  EXPECT_FALSE(Offer("volumetric/mesh", "B"));
  EXPECT_TRUE(Offer("volumetric/mesh", "A"));
  EXPECT_EQ(seen.calls, 2);
}

struct Delivered {
  int initialised = 0;
  int32_t value = 0;
  void* pointer = nullptr;
  int data = 0;
  void* pointers[4] = {};
  int32_t dataValue = 0;
  float amount = 0;
  bool othersLockedOut[2] = {};  // as in Seen, for the initialised and the data callback
};
Delivered delivered;

void OnInitialised(int32_t value, void* pointer) {
  ++delivered.initialised;
  delivered.value = value;
  delivered.pointer = pointer;
  delivered.othersLockedOut[0] = !BridgeMutexFreeForOthers();
}
void OnData(void* p0, void* p1, void* p2, int32_t value, void* p3, float amount) {
  ++delivered.data;
  delivered.pointers[0] = p0;
  delivered.pointers[1] = p1;
  delivered.pointers[2] = p2;
  delivered.pointers[3] = p3;
  delivered.dataValue = value;
  delivered.amount = amount;
  delivered.othersLockedOut[1] = !BridgeMutexFreeForOthers();
}
void ThrowOnInitialised(int32_t, void*) {
  throw std::runtime_error("host failed");
}
void AddMapEntryOnInitialised(int32_t value, void*) {
  Map_Add("from-callback", value);
}

TEST(AssetRelay, EventsWithoutACallbackAreLost) {
  int x = 0;
  StaticHandler_OnAssetInitialised(1, &x);
  StaticHandler_OnAssetRepresentationDataReceived(&x, &x, &x, 1, &x, 0.5f);
  Callback_Set_OnAssetInitialised(&OnInitialised);
  Callback_Set_OnAssetRepresentationDataReceived(&OnData);
  EXPECT_EQ(delivered.initialised, 0);  // nothing is replayed
  EXPECT_EQ(delivered.data, 0);
  Callback_Set_OnAssetInitialised(nullptr);
  Callback_Set_OnAssetRepresentationDataReceived(nullptr);
}

TEST(AssetRelay, EventsReachTheHostUnchanged) {
  Callback_Set_OnAssetInitialised(&OnInitialised);
  Callback_Set_OnAssetRepresentationDataReceived(&OnData);
  int p[4];
  StaticHandler_OnAssetInitialised(-3, &p[0]);
  StaticHandler_OnAssetRepresentationDataReceived(&p[0], &p[1], &p[2], 42, &p[3], 0.25f);
  EXPECT_EQ(delivered.initialised, 1);
  EXPECT_EQ(delivered.value, -3);
  EXPECT_EQ(delivered.pointer, &p[0]);
  EXPECT_EQ(delivered.data, 1);
  EXPECT_EQ(delivered.pointers[0], &p[0]);
  EXPECT_EQ(delivered.pointers[1], &p[1]);
  EXPECT_EQ(delivered.pointers[2], &p[2]);
  EXPECT_EQ(delivered.pointers[3], &p[3]);
  EXPECT_EQ(delivered.dataValue, 42);
  EXPECT_EQ(delivered.amount, 0.25f);
  EXPECT_TRUE(delivered.othersLockedOut[0] && delivered.othersLockedOut[1])
      << "callbacks run under the bridge mutex";
  Callback_Set_OnAssetInitialised(nullptr);
  Callback_Set_OnAssetRepresentationDataReceived(nullptr);
}

TEST(AssetRelay, CallbacksMayCallBackInAndTheirExceptionsReleaseTheMutex) {
  Callback_Set_OnAssetInitialised(&AddMapEntryOnInitialised);
  StaticHandler_OnAssetInitialised(5, nullptr);
  EXPECT_EQ(Map_GetValue("from-callback"), 5);
  Callback_Set_OnAssetInitialised(&ThrowOnInitialised);
  EXPECT_THROW(StaticHandler_OnAssetInitialised(5, nullptr), std::runtime_error);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  Callback_Set_OnAssetInitialised(nullptr);
}

TEST(ErrorStrings, KnownCodesHaveTheirTextsAndOthersTheEmptyText) {
  EXPECT_STREQ(QuorlError_ToString(0), "Success");
  EXPECT_STREQ(QuorlError_ToString(1), "Unknown Error");
  EXPECT_STREQ(QuorlError_ToString(200),
               "Failed to download manifest from remote server or find cached copy");
  EXPECT_STREQ(QuorlError_ToString(201), "Failed to parse manifest");
  EXPECT_STREQ(QuorlError_ToString(202),
               "Failed to download representation from remote server or find cached copy");
  EXPECT_STREQ(QuorlError_ToString(203), "Failed to load representation for playback");
  EXPECT_STREQ(QuorlError_ToString(204), "Failed to find a valid decoder for the loaded representation");
  EXPECT_STREQ(QuorlError_ToString(205), "Cached copy not valid for offline playback");
  for (int32_t code : {2, 199, 206, -1, INT32_MIN, INT32_MAX}) {
    ASSERT_NE(QuorlError_ToString(code), nullptr);
    EXPECT_STREQ(QuorlError_ToString(code), "") << code;
  }
}

}  // namespace
}  // namespace quorl
