#include "bridge/scene_objects.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::BridgeMutexFreeForOthers;
using testing::ExpectNullTextError;

class SceneObjects : public ::testing::Test {
 protected:
  void SetUp() override { testing::ResetSceneObjectsAndShutdown(); }
  void TearDown() override { testing::ResetSceneObjectsAndShutdown(); }
};

TEST_F(SceneObjects, RemovingAHandleRemovesEveryRecordWithItAndKeepsTheOrder) {
  Scene_Objects_Add(1, "one", "mesh");
  Scene_Objects_Add(2, "two", "mesh");
  Scene_Objects_Add(1, "one again", "light");
  Scene_Objects_Add(3, "three", "mesh");
  Scene_Objects_Add(2, "two again", "mesh");
  EXPECT_EQ(Scene_Objects_GetCount(), 5);
  Scene_Objects_Remove(2);
  ASSERT_EQ(Scene_Objects_GetCount(), 3);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(0), 1);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(1), 1);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(2), 3);
  Scene_Objects_Remove(1);
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(0), 3);
}

TEST_F(SceneObjects, IndexOutsideTheRecordsGivesZero) {
  Scene_Objects_Add(8, "only", "t");
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(0), 8);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(1), 0);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(-1), 0);
  EXPECT_EQ(Scene_Objects_GetHandleAtIndex(INT32_MIN), 0);
}

TEST_F(SceneObjects, LookUpByNameIsExactAndTheFirstMatchWins) {
  Scene_Objects_Add(4, "Camera", "t");
  Scene_Objects_Add(5, "camera", "t");
  Scene_Objects_Add(6, "camera", "t");
  Scene_Objects_Add(7, "", "t");
  EXPECT_EQ(Scene_Objects_GetHandleFromName("camera"), 5);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("Camera"), 4);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("camera "), 0);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("cam"), 0);
  EXPECT_EQ(Scene_Objects_GetHandleFromName(""), 7);
}

TEST_F(SceneObjects, TextsAreCopiedIntoTheBufferAndCutToFit) {
  Scene_Objects_Add(3, "abc", "volume");
  char buffer[8];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_TRUE(Scene_Objects_GetNameFromHandle(3, buffer, 4));
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(buffer[4], 'x');  // nothing beyond the given size is touched

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_FALSE(Scene_Objects_GetNameFromHandle(3, buffer, 3));
  EXPECT_STREQ(buffer, "ab");

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_TRUE(Scene_Objects_GetTypeFromHandle(3, buffer, 8));
  EXPECT_EQ(std::string(buffer, 8), std::string("volume\0\0", 8));  // the whole size is zeroed first

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_FALSE(Scene_Objects_GetNameFromHandle(4, buffer, 8));
  EXPECT_EQ(std::string(buffer, 8), "xxxxxxxx");  // unknown handle: untouched
}

TEST_F(SceneObjects, ABufferSizeOfZeroWritesOneZeroBeforeTheBuffer) {
  Scene_Objects_Add(3, "abc", "t");
  char buffer[4] = {'x', 'x', 'x', 'x'};
  EXPECT_FALSE(Scene_Objects_GetNameFromHandle(3, buffer + 1, 0));
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(buffer[1], 'x');
}

TEST_F(SceneObjects, NullTextsRaiseAndChangeNothing) {
  Scene_Objects_Add(1, "kept", "t");
  ExpectNullTextError([] { Scene_Objects_Add(2, nullptr, "t"); });
  ExpectNullTextError([] { Scene_Objects_Add(2, "name", nullptr); });
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  ExpectNullTextError([] { Scene_Objects_GetHandleFromName(nullptr); });
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

TEST_F(SceneObjects, NullNameOnAnEmptyRegistryFindsNothingWithoutRaising) {
  EXPECT_EQ(Scene_Objects_GetHandleFromName(nullptr), 0);
}

TEST_F(SceneObjects, HandleZeroIsStoredLikeAnyOther) {
  Scene_Objects_Add(0, "zero", "t");
  EXPECT_EQ(Scene_Objects_GetCount(), 1);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("zero"), 0);
  char buffer[8];
  EXPECT_TRUE(Scene_Objects_GetNameFromHandle(0, buffer, 8));
  EXPECT_STREQ(buffer, "zero");
}

}  // namespace
}  // namespace quorl
