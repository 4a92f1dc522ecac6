#include "bridge/scene_objects.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bridge_test_support.h"

namespace quorl {
namespace {

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
  for (int32_t outside : {1, -1, INT32_MIN})
    EXPECT_EQ(Scene_Objects_GetHandleAtIndex(outside), 0) << outside;
}

TEST_F(SceneObjects, LookUpByNameIsExactAndTheFirstMatchWins) {
  Scene_Objects_Add(4, "Camera", "t");
  Scene_Objects_Add(5, "camera", "t");
  Scene_Objects_Add(6, "camera", "t");
  Scene_Objects_Add(7, "", "t");
  Scene_Objects_Add(0, "zero", "t");  // handle 0 is stored like any other
  EXPECT_EQ(Scene_Objects_GetHandleFromName("camera"), 5);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("Camera"), 4);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("camera "), 0);
  EXPECT_EQ(Scene_Objects_GetHandleFromName("cam"), 0);
  EXPECT_EQ(Scene_Objects_GetHandleFromName(""), 7);
  char buffer[8];
  EXPECT_TRUE(Scene_Objects_GetNameFromHandle(0, buffer, 8));
  EXPECT_STREQ(buffer, "zero");
}

// The whole given size is zeroed, the text copied, and the last byte made zero whatever was copied, so
// a text of exactly the buffer's size loses its last character; true only when the whole text fit.
TEST_F(SceneObjects, TextsAreCopiedIntoTheBufferAndCutToFit) {
  Scene_Objects_Add(3, "abc", "volume");
  const struct {
    bool type;
    int32_t handle;
    int32_t size;
    bool fit;
    const char* bytes;  // all ten bytes of a buffer of 'x', of which the call gets the tail from byte 1
  } cases[] = {
      {false, 3, 4, true, "xabc\0xxxxx"},  {false, 3, 3, false, "xab\0xxxxxx"},
      {true, 3, 8, true, "xvolume\0\0x"},  {true, 3, 6, false, "xvolum\0xxx"},
      {false, 4, 8, false, "xxxxxxxxxx"},   // unknown handle: untouched
      {false, 3, 0, false, "\0xxxxxxxxx"},  // size 0: one zero just before the buffer
  };
  for (const auto& c : cases) {
    char buffer[10];
    std::memset(buffer, 'x', sizeof buffer);
    const bool fit = c.type ? Scene_Objects_GetTypeFromHandle(c.handle, buffer + 1, c.size)
                            : Scene_Objects_GetNameFromHandle(c.handle, buffer + 1, c.size);
    EXPECT_EQ(fit, c.fit) << c.handle << " " << c.size;
    EXPECT_EQ(std::string(buffer, 10), std::string(c.bytes, 10)) << c.handle << " " << c.size;
  }
}

}  // namespace
}  // namespace quorl
