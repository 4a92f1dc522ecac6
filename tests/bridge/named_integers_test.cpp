#include "bridge/named_integers.h"

#include <gtest/gtest.h>

#include "bridge_test_support.h"

namespace quorl {
namespace {

using testing::ExpectNullTextError;

TEST(NamedIntegers, AddNeverOverwritesAndSetNeverCreates) {
  Map_Add("speed", 1);
  Map_Add("speed", 2);
  EXPECT_EQ(Map_GetValue("speed"), 1);
  Map_SetValue("speed", 3);
  EXPECT_EQ(Map_GetValue("speed"), 3);
  Map_SetValue("absent", 4);
  EXPECT_FALSE(Map_Contains("absent"));
  EXPECT_EQ(Map_GetValue("absent"), 0);
  Map_Remove("speed");
  EXPECT_FALSE(Map_Contains("speed"));
}

TEST(NamedIntegers, AStoredZeroIsToldApartOnlyByContains) {
  Map_Add("zero", 0);
  EXPECT_EQ(Map_GetValue("zero"), 0);
  EXPECT_TRUE(Map_Contains("zero"));
  Map_Remove("zero");
  Map_Remove("zero");  // absent now: nothing happens
  EXPECT_FALSE(Map_Contains("zero"));
}

TEST(NamedIntegers, KeysAreCaseSensitiveAndTheEmptyTextIsAKey) {
  Map_Add("Level", 1);
  Map_Add("level", 2);
  Map_Add("", -5);
  EXPECT_EQ(Map_GetValue("Level"), 1);
  EXPECT_EQ(Map_GetValue("level"), 2);
  EXPECT_EQ(Map_GetValue(""), -5);
  Map_SetValue("", 6);
  EXPECT_EQ(Map_GetValue(""), 6);
  for (const char* name : {"Level", "level", ""})
    Map_Remove(name);
  EXPECT_FALSE(Map_Contains(""));
}

TEST(NamedIntegers, NullNamesRaiseInEveryOperationAndChangeNothing) {
  Map_Add("kept", 9);
  ExpectNullTextError([] { Map_Add(nullptr, 1); });
  ExpectNullTextError([] { Map_Remove(nullptr); });
  ExpectNullTextError([] { Map_Contains(nullptr); });
  ExpectNullTextError([] { Map_GetValue(nullptr); });
  ExpectNullTextError([] { Map_SetValue(nullptr, 1); });
  EXPECT_EQ(Map_GetValue("kept"), 9);
  EXPECT_TRUE(testing::BridgeMutexFreeForOthers());
  Map_Remove("kept");
}

}  // namespace
}  // namespace quorl
