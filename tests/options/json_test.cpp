#include "options/json.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "options/options_test_support.h"

namespace quorl::testing {
namespace {

TEST(JsonRead, NumbersTakeTheirTypeFromTheirMagnitude) {
  NodeRef root =
      Read(R"({"a":5,"b":3000000000,"c":-3000000000,"d":5000000000,"e":10000000000000000000,"f":5.0})");
  const auto& c = root->GetChildren();
  EXPECT_EQ(*c[0]->GetValue().Get<Int32Type>(), 5);
  EXPECT_EQ(*c[1]->GetValue().Get<UInt32Type>(), 3000000000u);
  EXPECT_EQ(*c[2]->GetValue().Get<Int64Type>(), -3000000000ll);
  EXPECT_EQ(*c[3]->GetValue().Get<Int64Type>(), 5000000000ll);
  EXPECT_EQ(*c[4]->GetValue().Get<UInt64Type>(), 10000000000000000000ull);
  EXPECT_EQ(*c[5]->GetValue().Get<DoubleType>(), 5.0);
}

TEST(JsonRead, ResultIsWhatTheLastEntryGaveAndNothingIsUndone) {
  const std::tuple<const char*, bool, std::size_t> cases[] = {
      {R"({"a":1,"b":"x","c":null})", false, 3},
      {R"({"a":null,"b":[null,{"c":true}]})", true, 2},
      {R"([{"a":1},[]])", false, 2},
      {"{}", false, 0},
      {"null", false, 0},
      {"1.5", true, 0}};
  for (const auto& [text, expected, children] : cases) {
    bool result = !expected;
    EXPECT_EQ(Read(text, &result)->GetChildren().size(), children) << text;
    EXPECT_EQ(result, expected) << text;
  }
  NodeRef root = Read("true");
  EXPECT_FALSE(ReadJson(root, Parse("null")));  // the value stays
  EXPECT_EQ(*root->GetValue().Get<BoolType>(), 1);
}

TEST(JsonRead, ReadingAppendsAndTextsEndAtTheirFirstNul) {
  NodeRef root = Read(R"({"video":{"codec":"av1"},"video":1})");
  ReadJson(root, Parse(R"({"video":2})"));
  EXPECT_EQ(Write(root), R"({"video":1,"video":2,"video":{"codec":"av1"}})");
  // Keys and strings end at their first NUL, and the key is hashed in that form.
  NodeRef child = Read(R"({"ke\u0000y":"va\u0000lue"})")->GetChildren().at(0);
  EXPECT_EQ(child->GetName().hash, NameHash("ke"));
  EXPECT_EQ(*child->GetValue().Get<StringType>(), "va");
}

TEST(JsonWrite, ValuesComeBeforeContainersTheFirstChildDecidesAndEmptyThingsVanish) {
  const std::pair<const char*, const char*> cases[] = {
      {R"([1,[2],3,{"x":4},5])", R"([1,3,5,[2],{"x":4}])"},
      // An array of nulls keeps its element nodes, so it stays an array, now an empty one.
      {R"({"a":{},"b":[],"c":null,"d":[null],"e":1})", R"({"e":1,"d":[]})"},
      {R"({"s":{"tracks":[{"id":1},2,null,[],"x"],"meta":{},"gain":1.5}})",
       R"({"s":{"gain":1.5,"tracks":[2,"x",{"id":1}]}})"},
      {R"({"":1,"b":2})", "[1,2]"},  // the first child decides the shape
      {R"({"b":1,"":2})", R"({"b":1,"":2})"},
  };
  for (const auto& [text, written] : cases)
    EXPECT_EQ(Write(Read(text)), written) << text;
  NodeRef both = Read(R"({"k":{"inner":1}})");
  both->FindChild("k")->SetValue(Str("s"));
  EXPECT_EQ(Write(both), R"({"k":"s","k":{"inner":1}})");  // a value and children: written twice
  rapidjson::Document document;
  document.SetObject();
  EXPECT_FALSE(WriteJson(Read("7"), document, document.GetAllocator()));  // the node's own value
  EXPECT_TRUE(document.ObjectEmpty());
}

TEST(JsonWrite, EachValueTypeHasItsDomForm) {
  NodeRef root = Node();
  root->SetChild("bool", OptionValue::Of<BoolType>(2));
  root->SetChild("float", OptionValue::Of<FloatType>(0.5f));
  root->SetChild("u32", OptionValue::Of<UInt32Type>(3000000000u));
  root->SetChild("u64", OptionValue::Of<UInt64Type>(18446744073709551615ull));
  root->SetChild("name", OptionValue::Of<HashedNameType>(HashedName("label")));
  root->SetChild("text", Str("tab\t\"q\""));
  EXPECT_EQ(Write(root), R"({"bool":true,"float":0.5,"u32":-1294967296,"u64":18446744073709551615,)"
                         R"("name":"label","text":"tab\t\"q\""})");
}

}  // namespace
}  // namespace quorl::testing
