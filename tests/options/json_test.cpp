#include "options/json.h"

#include <gtest/gtest.h>

#include <stdexcept>
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

// Writes the node into a top-level value of the kind its shape asks for, as a caller would.
std::string Write(const Ref& node) {
  rapidjson::Document document;
  if (node->IsArray()) {
    document.SetArray();
  } else {
    document.SetObject();
  }
  WriteJson(node, document, document.GetAllocator());
  return Print(document);
}

TEST(JsonRead, NumbersTakeTheirTypeFromTheirMagnitude) {
  Ref root = Read(R"({"a":5,"b":3000000000,"c":-3000000000,"d":5000000000,)"
                  R"("e":10000000000000000000,"f":5.0,"g":-5,"h":4294967295})");
  auto valueOf = [&](const char* key) { return root->FindChild(key)->GetValue(); };
  EXPECT_EQ(*valueOf("a").Get<Int32Type>(), 5);
  EXPECT_EQ(*valueOf("b").Get<UInt32Type>(), 3000000000u);
  EXPECT_EQ(*valueOf("c").Get<Int64Type>(), -3000000000ll);
  EXPECT_EQ(*valueOf("d").Get<Int64Type>(), 5000000000ll);
  EXPECT_EQ(*valueOf("e").Get<UInt64Type>(), 10000000000000000000ull);
  EXPECT_EQ(*valueOf("f").Get<DoubleType>(), 5.0);
  EXPECT_EQ(*valueOf("g").Get<Int32Type>(), -5);
  EXPECT_EQ(*valueOf("h").Get<UInt32Type>(), 4294967295u);
}

TEST(JsonRead, ResultIsWhatTheLastEntryGave) {
  bool result = true;
  Ref root = Read(R"({"a":1,"b":"x","c":null})", &result);
  EXPECT_FALSE(result);
  EXPECT_EQ(root->GetChildren().size(), 3u);  // nothing is undone
  EXPECT_EQ(*root->FindChild("b")->GetValue().Get<StringType>(), "x");

  Read(R"({"a":null,"b":[null,{"c":true}]})", &result);
  EXPECT_TRUE(result);
  Read(R"({"a":[1,[]]})", &result);
  EXPECT_FALSE(result);

  root = Read("{}", &result);
  EXPECT_FALSE(result);
  EXPECT_TRUE(root->GetChildren().empty());
  Read("[]", &result);
  EXPECT_FALSE(result);
}

TEST(JsonRead, ScalarsSetTheNodesValueAndNullKeepsIt) {
  Ref node = std::make_shared<OptionNode>();
  EXPECT_TRUE(ReadJson(node, Parse("true")));
  EXPECT_EQ(*node->GetValue().Get<BoolType>(), 1);
  EXPECT_FALSE(ReadJson(node, Parse("null")));
  EXPECT_EQ(*node->GetValue().Get<BoolType>(), 1);
  EXPECT_TRUE(ReadJson(node, Parse(R"("caf\u00e9")")));
  EXPECT_EQ(*node->GetValue().Get<StringType>(), "caf\xc3\xa9");
}

TEST(JsonRead, ReadingAppendsAndDuplicateKeysAreKeptInOrder) {
  Ref root = Read(R"({"a":1,"b":2,"a":3})");
  EXPECT_EQ(root->GetChildren().size(), 3u);
  ReadJson(root, Parse(R"({"a":4,"b":5})"));
  ASSERT_EQ(root->GetChildren().size(), 5u);
  EXPECT_EQ(*root->FindChild("a")->GetValue().Get<Int32Type>(), 1);
  EXPECT_EQ(*root->GetChildren()[3]->GetValue().Get<Int32Type>(), 4);
}

TEST(JsonRead, KeysAreHashedAsNamesAndMeetPaths) {
  Ref root = Read(R"({"video":{"codec":"av1","layers":[{"bitrate":100},{"bitrate":200}]}})");
  Ref codec = root->FindByPath({"video", "codec"});
  ASSERT_NE(codec, nullptr);
  EXPECT_EQ(codec->GetName().hash, NameHash("codec"));
  EXPECT_EQ(*root->FindByPath({"video", "layers", "0", "bitrate"})->GetValue().Get<Int32Type>(), 100);
  EXPECT_EQ(root->FindByPath({"video", "layers", "1"}), nullptr);
  EXPECT_TRUE(root->FindByPath({"video", "layers"})->IsArray());
}

TEST(JsonRead, TextsEndAtTheirFirstNul) {
  Ref root = Read(R"({"ke\u0000y":"va\u0000lue"})");
  Ref child = root->GetChildren().at(0);
  EXPECT_EQ(child->GetName().name, "ke");
  EXPECT_EQ(child->GetName().hash, NameHash("ke"));
  EXPECT_EQ(*child->GetValue().Get<StringType>(), "va");
}

TEST(JsonRead, AContainerNeedsANodeHeldBySharedReference) {
  std::shared_ptr<OptionNode> unowned(std::shared_ptr<OptionNode>(), new OptionNode());  // aliasing, no owner
  EXPECT_THROW(ReadJson(unowned, Parse(R"({"a":1})")), std::bad_weak_ptr);
  EXPECT_TRUE(unowned->GetChildren().empty());
  delete unowned.get();
}

#ifdef NDEBUG  // RapidJSON asserts on a null string in debug builds
TEST(JsonRead, AStringWithoutTextRaisesTheNullTextError) {
  JsonValue nullText(rapidjson::StringRef(static_cast<const char*>(nullptr), 0));
  Ref node = std::make_shared<OptionNode>();
  try {
    ReadJson(node, nullText);
    ADD_FAILURE() << "no exception";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
  }
}
#endif

TEST(JsonWrite, ValuesComeBeforeContainersInBothShapes) {
  EXPECT_EQ(Write(Read("[1,[2],3,{\"x\":4},5]")), R"([1,3,5,[2],{"x":4}])");
  EXPECT_EQ(Write(Read(R"({"a":{"b":1},"c":2})")), R"({"c":2,"a":{"b":1}})");
}

TEST(JsonWrite, EmptyContainersNullsAndTheNodesOwnValueAreDropped) {
  // An array of nulls keeps its element nodes, so it is still an array, now an empty one.
  EXPECT_EQ(Write(Read(R"({"a":{},"b":[],"c":null,"d":[null],"e":1})")), R"({"e":1,"d":[]})");
  Ref scalar = Read("7");
  rapidjson::Document document;
  document.SetObject();
  EXPECT_FALSE(WriteJson(scalar, document, document.GetAllocator()));
  EXPECT_EQ(Print(document), "{}");
}

TEST(JsonWrite, AChildWithValueAndChildrenIsWrittenTwice) {
  Ref root = std::make_shared<OptionNode>();
  Ref both = root->GetOrCreateChild("k");
  both->SetValue(OptionValue::Of<StringType>("s"));
  both->SetChild("inner", OptionValue::Of<Int32Type>(1));
  EXPECT_EQ(Write(root), R"({"k":"s","k":{"inner":1}})");
}

TEST(JsonWrite, TheFirstChildDecidesTheShapeForAllChildren) {
  Ref array = std::make_shared<OptionNode>();
  array->AddValue(OptionValue::Of<Int32Type>(1));
  array->SetChild("named", OptionValue::Of<Int32Type>(2));
  EXPECT_EQ(Write(array), "[1,2]");
  Ref object = std::make_shared<OptionNode>();
  object->SetChild("named", OptionValue::Of<Int32Type>(1));
  object->AddValue(OptionValue::Of<Int32Type>(2));
  EXPECT_EQ(Write(object), R"({"named":1,"":2})");
  // An object whose first key is empty reads as an array and is written as one.
  Ref emptyKey = Read(R"({"":1,"b":2})");
  EXPECT_TRUE(emptyKey->IsArray());
  EXPECT_EQ(Write(emptyKey), "[1,2]");
}

TEST(JsonWrite, EachValueTypeHasItsDomForm) {
  Ref root = std::make_shared<OptionNode>();
  root->SetChild("bool", OptionValue::Of<BoolType>(2));
  root->SetChild("float", OptionValue::Of<FloatType>(0.5f));
  root->SetChild("u32", OptionValue::Of<UInt32Type>(3000000000u));
  root->SetChild("i64", OptionValue::Of<Int64Type>(-5000000000ll));
  root->SetChild("u64", OptionValue::Of<UInt64Type>(18446744073709551615ull));
  root->SetChild("name", OptionValue::Of<HashedNameType>(HashedName("label")));
  root->SetChild("text", OptionValue::Of<StringType>("tab\there \"q\""));
  EXPECT_EQ(Write(root), R"({"bool":true,"float":0.5,"u32":-1294967296,"i64":-5000000000,)"
                         R"("u64":18446744073709551615,"name":"label","text":"tab\there \"q\""})");
}

TEST(JsonWrite, WritingIntoAnExistingValueAppends) {
  rapidjson::Document document;
  document.SetArray();
  document.PushBack(0, document.GetAllocator());
  Ref leaf = std::make_shared<OptionNode>();
  EXPECT_FALSE(WriteJson(leaf, document, document.GetAllocator()));
  EXPECT_TRUE(WriteJson(Read("[1]"), document, document.GetAllocator()));
  EXPECT_EQ(Print(document), "[0,1]");
}

TEST(JsonRoundTrip, RealisticDocumentsSurviveWhenOrderAllows) {
  // Values precede containers everywhere and nothing is empty or null: text comes back unchanged.
  const std::string text =
      R"({"name":"studio \"A\"\n","version":3,"gain":-0.75,"big":9000000000,"title":"\u65e5\u672c",)"
      R"("flags":[true,false,true],"streams":[{"id":1,"codec":"h264","tags":["a","b"]},{"id":2,"codec":"opus"}],)"
      R"("limits":{"max":2147483647,"min":-2147483648,"nested":{"deeper":{"x":1e300}}}})";
  const std::string canonical = Print(Parse(text));
  Ref tree = Read(text);
  EXPECT_EQ(Write(tree), canonical);

  // A second read of the output gives an equal tree, since every type above survives the trip.
  Ref again = Read(Write(tree));
  EXPECT_TRUE(again->Equals(tree));
}

TEST(JsonRoundTrip, TypesThatDoNotSurviveMakeTreesUnequal) {
  Ref tree = std::make_shared<OptionNode>();
  tree->SetChild("small", OptionValue::Of<Int64Type>(5));
  Ref back = Read(Write(tree));
  EXPECT_EQ(*back->FindChild("small")->GetValue().Get<Int32Type>(), 5);
  EXPECT_FALSE(back->Equals(tree));
  tree = std::make_shared<OptionNode>();
  tree->SetChild("f", OptionValue::Of<FloatType>(0.25f));
  back = Read(Write(tree));
  EXPECT_EQ(*back->FindChild("f")->GetValue().Get<DoubleType>(), 0.25);
  EXPECT_FALSE(back->Equals(tree));
}

TEST(JsonDepth, AThousandLevelsReadWriteCopyCompareAndDie) {
  std::string text;
  for (int i = 0; i < 1000; ++i)
    text += (i % 2 == 0) ? "[" : "{\"k\":";
  text += "42";
  for (int i = 999; i >= 0; --i)
    text += (i % 2 == 0) ? "]" : "}";
  bool result = false;
  Ref tree = Read(text, &result);
  EXPECT_TRUE(result);
  EXPECT_EQ(Write(tree), Print(Parse(text)));
  Ref copy = std::make_shared<OptionNode>();
  copy->CopyChildrenFrom(tree);
  EXPECT_TRUE(copy->Equals(tree));
  Ref deepest = copy;
  while (!deepest->GetChildren().empty())
    deepest = deepest->GetChildren()[0];
  deepest->SetValue(OptionValue::Of<Int32Type>(43));
  EXPECT_FALSE(copy->Equals(tree));
  OptionPath path;
  deepest->GetPath(path);
  EXPECT_EQ(path.size(), 1000u);
}

}  // namespace
}  // namespace quorl
