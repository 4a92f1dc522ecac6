#include "options/json.h"

#include <gtest/gtest.h>

#include <string>

namespace quorl {
namespace {

using Ref = std::shared_ptr<OptionNode>;

rapidjson::Document Parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  EXPECT_FALSE(document.HasParseError()) << text;
  return document;
}

std::string Print(const JsonValue& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

Ref Read(const std::string& text, bool* result = nullptr) {
  Ref root = std::make_shared<OptionNode>();
  const bool read = ReadJson(root, Parse(text));
  if (result != nullptr) *result = read;
  return root;
}

// Writes into a top-level value of the kind that the node's shape asks for, as a caller would.
std::string Write(const Ref& node) {
  rapidjson::Document document;
  node->IsArray() ? document.SetArray() : document.SetObject();
  WriteJson(node, document, document.GetAllocator());
  return Print(document);
}

TEST(JsonRead, NumbersTakeTheirTypeFromTheirMagnitude) {
  Ref root =
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
  bool result = true;
  Ref root = Read(R"({"a":1,"b":"x","c":null})", &result);
  EXPECT_FALSE(result);
  EXPECT_EQ(root->GetChildren().size(), 3u);
  Read(R"({"a":null,"b":[null,{"c":true}]})", &result);
  EXPECT_TRUE(result);
  root = Read("{}", &result);
  EXPECT_FALSE(result);
  EXPECT_TRUE(root->GetChildren().empty());

  root->SetValue(OptionValue::Of<BoolType>(1));
  EXPECT_FALSE(ReadJson(root, Parse("null")));  // the value stays
  EXPECT_EQ(*root->GetValue().Get<BoolType>(), 1);
  EXPECT_TRUE(ReadJson(root, Parse(R"("caf\u00e9")")));
  EXPECT_EQ(*root->GetValue().Get<StringType>(), "caf\xc3\xa9");
}

TEST(JsonRead, ReadingAppendsAndKeysMeetPathsByHash) {
  Ref root = Read(R"({"video":{"codec":"av1","layers":[{"rate":100},{"rate":200}]},"video":1})");
  ReadJson(root, Parse(R"({"video":2})"));
  ASSERT_EQ(root->GetChildren().size(), 3u);
  EXPECT_EQ(root->FindChild("video"), root->GetChildren()[0]);
  EXPECT_EQ(root->FindByPath({"video", "codec"})->GetName().hash, NameHash("codec"));
  EXPECT_EQ(*root->FindByPath({"video", "layers", "0", "rate"})->GetValue().Get<Int32Type>(), 100);
  EXPECT_EQ(root->FindByPath({"video", "layers", "1"}), nullptr);

  // Keys and strings end at their first NUL, and the key is hashed in that form.
  Ref child = Read(R"({"ke\u0000y":"va\u0000lue"})")->GetChildren().at(0);
  EXPECT_EQ(child->GetName().hash, NameHash("ke"));
  EXPECT_EQ(*child->GetValue().Get<StringType>(), "va");
}

TEST(JsonWrite, ValuesComeBeforeContainersAndEmptyThingsVanish) {
  EXPECT_EQ(Write(Read("[1,[2],3,{\"x\":4},5]")), R"([1,3,5,[2],{"x":4}])");
  // An array of nulls keeps its element nodes, so it stays an array, now an empty one.
  EXPECT_EQ(Write(Read(R"({"a":{},"b":[],"c":null,"d":[null],"e":1})")), R"({"e":1,"d":[]})");
  rapidjson::Document document;
  document.SetObject();
  EXPECT_FALSE(WriteJson(Read("7"), document, document.GetAllocator()));  // the node's own value
  EXPECT_EQ(Print(document), "{}");
}

TEST(JsonWrite, TheFirstChildDecidesTheShapeAndBothKindsOfChildAreWritten) {
  Ref array = std::make_shared<OptionNode>();
  array->AddValue(OptionValue::Of<Int32Type>(1));
  array->SetChild("named", OptionValue::Of<Int32Type>(2));
  EXPECT_EQ(Write(array), "[1,2]");
  Ref object = std::make_shared<OptionNode>();
  Ref both = object->GetOrCreateChild("k");
  object->AddValue(OptionValue::Of<Int32Type>(2));
  both->SetValue(OptionValue::Of<StringType>("s"));
  both->SetChild("inner", OptionValue::Of<Int32Type>(1));
  EXPECT_EQ(Write(object), R"({"k":"s","":2,"k":{"inner":1}})");
  Ref emptyKey = Read(R"({"":1,"b":2})");
  EXPECT_TRUE(emptyKey->IsArray());
  EXPECT_EQ(Write(emptyKey), "[1,2]");
}

TEST(JsonWrite, EachValueTypeHasItsDomForm) {
  Ref root = std::make_shared<OptionNode>();
  root->SetChild("bool", OptionValue::Of<BoolType>(2));
  root->SetChild("float", OptionValue::Of<FloatType>(0.5f));
  root->SetChild("u32", OptionValue::Of<UInt32Type>(3000000000u));
  root->SetChild("u64", OptionValue::Of<UInt64Type>(18446744073709551615ull));
  root->SetChild("name", OptionValue::Of<HashedNameType>(HashedName("label")));
  root->SetChild("text", OptionValue::Of<StringType>("tab\t\"q\""));
  EXPECT_EQ(Write(root), R"({"bool":true,"float":0.5,"u32":-1294967296,"u64":18446744073709551615,)"
                         R"("name":"label","text":"tab\t\"q\""})");
}

TEST(JsonRoundTrip, RealisticDocumentsSurviveWhereTheRulesAllow) {
  // Values precede containers everywhere and nothing is empty or null: the text comes back unchanged.
  const std::string text =
      R"({"name":"studio \"A\"\n","version":3,"gain":-0.75,"big":9000000000,"title":"\u65e5\u672c",)"
      R"("flags":[true,false],"streams":[{"id":1,"codec":"h264","tags":["a","b"]},{"id":2,"codec":"opus"}],)"
      R"("limits":{"max":2147483647,"min":-2147483648,"nested":{"deeper":{"x":1e300}}}})";
  Ref tree = Read(text);
  EXPECT_EQ(Write(tree), Print(Parse(text)));
  EXPECT_TRUE(Read(Write(tree))->Equals(tree));
  // Empty containers and nulls are lost, and scalars move ahead of containers.
  EXPECT_EQ(Write(Read(R"({"stream":{"tracks":[{"id":1},2,null,[],"x"],"meta":{},"gain":1.5}})")),
            R"({"stream":{"gain":1.5,"tracks":[2,"x",{"id":1}]}})");

  Ref typed = std::make_shared<OptionNode>();
  typed->SetChild("small", OptionValue::Of<Int64Type>(5));
  typed->SetChild("f", OptionValue::Of<FloatType>(0.25f));
  Ref back = Read(Write(typed));
  EXPECT_EQ(*back->FindChild("small")->GetValue().Get<Int32Type>(), 5);
  EXPECT_EQ(*back->FindChild("f")->GetValue().Get<DoubleType>(), 0.25);
  EXPECT_FALSE(back->Equals(typed));
}

TEST(JsonRoundTrip, AThousandLevelsReadWriteCopyCompareAndDie) {
  std::string text;
  for (int i = 0; i < 1000; ++i)
    text += (i % 2 == 0) ? "[" : "{\"k\":";
  text += "42";
  for (int i = 999; i >= 0; --i)
    text += (i % 2 == 0) ? "]" : "}";
  Ref tree = Read(text);
  EXPECT_EQ(Write(tree), Print(Parse(text)));
  Ref copy = std::make_shared<OptionNode>();
  copy->CopyChildrenFrom(tree);
  EXPECT_TRUE(copy->Equals(tree));
  Ref deepest = copy;
  while (!deepest->GetChildren().empty())
    deepest = deepest->GetChildren()[0];
  deepest->SetValue(OptionValue::Of<Int32Type>(43));
  EXPECT_FALSE(copy->Equals(tree));
}

}  // namespace
}  // namespace quorl
