// The representation policy's selection key lives as long as the library and is never reset, so these
// tests run in a process of their own, in the order written.
#include "bridge/asset_relay.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "bridge_test_support.h"
#include "support/error_texts.h"

namespace quorl {
namespace {

using testing::BridgeMutexFreeForOthers;

bool Offer(const char* mediaType, const char* selectionKey) {
  RepresentationDescriptor descriptor{mediaType, selectionKey};
  return StaticHandler_OnAssetSelectRepresentation(&descriptor, 0, nullptr, 0, nullptr);
}

TEST(AssetRelay, PolicyFixesTheFirstVolumetricKeyForGood) {
  testing::ExpectNullTextError([] { Offer("volumetric/mesh", nullptr); });
  EXPECT_EQ(ChosenSelectionKey(), "");
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  const struct {
    const char* mediaType;
    const char* selectionKey;
    bool accepted;
    const char* chosenAfter;
  } offers[] = {
      {"video/mp4", "A", true, ""},
      {"volumetric", "B", true, ""},    // the prefix without its slash
      {"Volumetric/x", "C", true, ""},  // the prefix is matched exactly
      {"", "D", true, ""},
      {"volumetric/mesh", "", true, ""},  // an empty key leaves the choice open
      {"volumetric/mesh", "A", true, "A"},
      {"volumetric/mesh", "B", false, "A"},
      {"volumetric/pointcloud", "A", true, "A"},
      {"volumetric/", "", false, "A"},
      {"audio/aac", "B", true, "A"},
  };
  for (const auto& offer : offers) {
    EXPECT_EQ(Offer(offer.mediaType, offer.selectionKey), offer.accepted)
        << offer.mediaType << " " << offer.selectionKey;
    EXPECT_EQ(ChosenSelectionKey(), offer.chosenAfter) << offer.mediaType << " " << offer.selectionKey;
  }
}

// What the host's callbacks saw, and whether another thread could take the bridge mutex meanwhile.
struct Seen {
  std::vector<void*> pointers;  // for the selection callback, the descriptor first
  std::vector<int32_t> values;
  float amount = 0;
  int calls = 0;
  bool othersLockedOut = false;
};
Seen selected, initialised, data;

bool HostSelect(RepresentationDescriptor* d, int32_t v0, void* p0, int32_t v1, void* p1) {
  selected = Seen{{d, p0, p1}, {v0, v1}, 0, selected.calls + 1, !BridgeMutexFreeForOthers()};
  return v0 != 0;  // the host accepts what comes with a number
}
void HostInitialised(int32_t value, void* pointer) {
  initialised = Seen{{pointer}, {value}, 0, initialised.calls + 1, !BridgeMutexFreeForOthers()};
  Map_Add("from-callback", value);  // a callback may call back into the library
}
void HostData(void* p0, void* p1, void* p2, int32_t value, void* p3, float amount) {
  data = Seen{{p0, p1, p2, p3}, {value}, amount, data.calls + 1, !BridgeMutexFreeForOthers()};
}

TEST(AssetRelay, AHostCallbackDecidesAloneAndTheKeyStandsWhenItIsCleared) {
  Callback_Set_OnAssetSelectRepresentation(&HostSelect);
  int a = 0;
  int b = 0;
  RepresentationDescriptor descriptor{"volumetric/mesh", "B"};
  EXPECT_TRUE(StaticHandler_OnAssetSelectRepresentation(&descriptor, 11, &a, -12, &b));
  EXPECT_EQ(selected.pointers, (std::vector<void*>{&descriptor, &a, &b}));
  EXPECT_EQ(selected.values, (std::vector<int32_t>{11, -12}));
  EXPECT_TRUE(selected.othersLockedOut) << "the host decides under the bridge mutex";
  EXPECT_FALSE(Offer("video/mp4", "A"));
  EXPECT_EQ(selected.calls, 2);
  EXPECT_EQ(ChosenSelectionKey(), "A");  // neither read nor written while the host decides

  Callback_Set_OnAssetSelectRepresentation(nullptr);
  EXPECT_FALSE(Offer("volumetric/mesh", "B"));
  EXPECT_TRUE(Offer("volumetric/mesh", "A"));
  EXPECT_EQ(selected.calls, 2);
}

TEST(AssetRelay, EventsReachTheHostUnchangedUnderTheMutexOrAreLost) {
  int p[4];
  StaticHandler_OnAssetInitialised(1, &p[0]);
  StaticHandler_OnAssetRepresentationDataReceived(&p[0], &p[0], &p[0], 1, &p[0], 0.5f);
  Callback_Set_OnAssetInitialised(&HostInitialised);
  Callback_Set_OnAssetRepresentationDataReceived(&HostData);
  EXPECT_EQ(initialised.calls + data.calls, 0) << "events without a callback are not replayed";

  StaticHandler_OnAssetInitialised(-3, &p[1]);
  StaticHandler_OnAssetRepresentationDataReceived(&p[0], &p[1], &p[2], 42, &p[3], 0.25f);
  EXPECT_EQ(initialised.calls, 1);
  EXPECT_EQ(initialised.values, std::vector<int32_t>{-3});
  EXPECT_EQ(initialised.pointers, std::vector<void*>{&p[1]});
  EXPECT_EQ(Map_GetValue("from-callback"), -3);
  EXPECT_EQ(data.calls, 1);
  EXPECT_EQ(data.pointers, (std::vector<void*>{&p[0], &p[1], &p[2], &p[3]}));
  EXPECT_EQ(data.values, std::vector<int32_t>{42});
  EXPECT_EQ(data.amount, 0.25f);
  EXPECT_TRUE(initialised.othersLockedOut && data.othersLockedOut) << "callbacks run under the bridge mutex";
  Callback_Set_OnAssetInitialised(nullptr);
  Callback_Set_OnAssetRepresentationDataReceived(nullptr);
  StaticHandler_OnAssetInitialised(5, nullptr);
  EXPECT_EQ(initialised.calls, 1) << "a cleared callback is not called";
  Map_Remove("from-callback");
}

TEST(ErrorStrings, KnownCodesHaveTheirTextsAndOthersTheEmptyText) {
  for (const auto& [code, text] : expected::kErrorTexts)
    EXPECT_STREQ(QuorlError_ToString(code), text) << code;
}

}  // namespace
}  // namespace quorl
