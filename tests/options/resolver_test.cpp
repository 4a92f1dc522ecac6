#include "options/resolver.h"

#include <gtest/gtest.h>

#include <functional>

#include "options/json.h"
#include "options/schema_test_support.h"

namespace quorl::testing {
namespace {

NodeRef Read(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  NodeRef root = std::make_shared<OptionNode>();
  ReadJson(root, document);
  return root;
}

std::string Write(const NodeRef& root) {
  rapidjson::Document document;
  WriteJson(root, document.SetObject(), document.GetAllocator());
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return buffer.GetString();
}

std::string Problem(const std::string& message) {
  return "3 Qz LOG:\t" + message + "\n";
}

// The settings of a video player, declared as its developer would.
GroupRef PlayerSchema() {
  GroupRef root = Root();
  OptionValue zero = OptionValue::Of<FloatType>(0), one = OptionValue::Of<FloatType>(1);
  root->AddOption(std::make_shared<OptionDescriptor>(root, "volume", 1, OptionValue::Of<FloatType>(0.8f),
                                                     zero, one, "Output level"));
  Declare(root, "muted", Bool(false));
  DescriptorRef language = root->AddOption(std::make_shared<OptionDescriptor>(
      root, "language", 2, Str("en"), std::vector<OptionValue>{Str("en"), Str("fr")}, "Audio language"));
  GroupRef video = root->AddGroup("video");
  DescriptorRef renderer = Declare(video, "renderer", Str("auto"));
  DescriptorRef hdr = Declare(video, "hdr", Bool(false), MakeEqual(renderer, Str("vulkan")));
  Declare(video, "tonemap", Str("reinhard"), MakeEqual(hdr, Bool(true)));
  Declare(video, "fps", Int(60));
  GroupRef subtitles = root->AddGroup("subtitles", MakeNotEqual(language, Str("en")));
  Declare(subtitles, "size", Int(24));
  Declare(subtitles, "font", Str("sans"));
  GroupRef network = root->AddGroup("network");
  Declare(network, "bitrate", OptionValue::Of<Int64Type>(5000000));
  Declare(network, "proxy", Str(""), MakeEqual(Declare(network, "cache", Bool(true)), Bool(false)));
  return root;
}

TEST(Resolver, PlayerSettingsFromJsonComeOutCompleteAndTyped) {
  GroupRef schema = PlayerSchema();
  NodeRef config =
      Read(R"({"volume":1,"language":"fr","muted":null,"fps":25,"video":{"renderer":"vulkan","hdr":"true",)"
           R"("fps":"30","shader":"x"},"network":{"bitrate":8000000,"proxy":"host"}})");
  LogCapture log;
  EXPECT_FALSE(schema->Validate(config));
  schema->ApplyDefaults(config);
  EXPECT_EQ(log.lines, (std::vector<std::string>{
                           Problem("Option not found '.fps'"),
                           Problem("Option not found 'video.shader'"),
                           Problem("Option network.proxy not available in this configuration"),
                       }));
  EXPECT_EQ(
      Write(config),
      R"({"volume":1.0,"language":"fr","muted":false,"fps":25,)"
      R"("video":{"renderer":"vulkan","hdr":true,"fps":30,"shader":"x","tonemap":"reinhard"},)"
      R"("network":{"bitrate":8000000,"proxy":"host","cache":true},"subtitles":{"size":24,"font":"sans"}})");
  EXPECT_TRUE(config->FindByPath({"network", "bitrate"})->GetValue().Holds<Int64Type>());
  NodeRef before = std::make_shared<OptionNode>();
  before->CopyChildrenFrom(config);
  schema->ApplyDefaults(config);  // a second pass changes nothing
  EXPECT_TRUE(before->Equals(config));
}

TEST(Resolver, DefaultsFollowAvailabilityAndLeavePresentNodesAlone) {
  GroupRef schema = PlayerSchema();
  NodeRef config = std::make_shared<OptionNode>();
  config->SetChild("muted", Str("no"));
  config->GetOrCreateChild("network")->SetChild("cache", Bool(false));
  schema->ApplyDefaults(config);
  EXPECT_EQ(Write(config), R"({"muted":"no","volume":0.800000011920929,"language":"en",)"
                           R"("network":{"cache":false,"bitrate":5000000,"proxy":""},)"
                           R"("video":{"renderer":"auto","fps":60}})");
  config->FindChild("video")->SetChild("renderer", Str("vulkan"));
  schema->ApplyDefaults(config);
  EXPECT_TRUE(config->FindByPath({"video", "hdr"}));
  EXPECT_FALSE(config->FindByPath({"video", "tonemap"}));  // hdr's default is false
}

TEST(Resolver, ValidateReportsEveryProblemAndCoercesTheRest) {
  GroupRef schema = PlayerSchema();
  NodeRef config = Read(R"({"muted":"yes","a":1,"subtitles":{"size":"30","b":2},"b":3,"volume":"0.5"})");
  LogCapture log;
  EXPECT_FALSE(schema->Validate(config));
  EXPECT_EQ(log.lines, (std::vector<std::string>{
                           Problem("Option not found '.a'"),
                           Problem("Option .subtitles not available in this configuration"),
                           Problem("Option not found '.b'"),
                       }));
  EXPECT_EQ(*config->FindChild("muted")->GetValue().Get<BoolType>(), 0);  // "yes" is no truth word
  EXPECT_EQ(*config->FindChild("volume")->GetValue().Get<FloatType>(), 0.5f);
  EXPECT_TRUE(config->FindByPath({"subtitles", "size"})->GetValue().Holds<StringType>());  // not visited
  config->SetChild("language", Str("fr"));
  config->SetChild("volume", OptionValue::Of<DoubleType>(1.0 / 3));
  config->RemoveChild(HashedName("a"));
  config->RemoveChild(HashedName("b"));
  log.lines.clear();
  EXPECT_FALSE(schema->Validate(config));
  EXPECT_EQ(log.lines, std::vector<std::string>{Problem("Option not found 'subtitles.b'")});
  EXPECT_EQ(*config->FindByPath({"subtitles", "size"})->GetValue().Get<Int32Type>(), 30);
  EXPECT_EQ(config->FindChild("volume")->GetValue().ToText(), "0.333333");  // "%f" on the way through
  EXPECT_TRUE(schema->Validate(std::make_shared<OptionNode>()));
}

TEST(Resolver, AProblemStaysInTheResultWhenAGroupAfterItIsClean) {
  GroupRef schema = Root();
  Declare(schema->AddGroup("video"), "fps", Int(60));
  NodeRef config = Read(R"({"x":1,"video":{"fps":"30"}})");
  LogCapture log;
  EXPECT_FALSE(schema->Validate(config));
  EXPECT_EQ(log.lines, std::vector<std::string>{Problem("Option not found '.x'")});
  EXPECT_EQ(*config->FindByPath({"video", "fps"})->GetValue().Get<Int32Type>(), 30);
}

TEST(Resolver, ANameOfOptionAndGroupIsValidatedAsGroupThenCoercedAsOption) {
  GroupRef schema = Root();
  Declare(schema, "codec", Int(7));
  Declare(schema->AddGroup("codec"), "level", Int(4));
  NodeRef config = std::make_shared<OptionNode>();
  schema->ApplyDefaults(config);
  EXPECT_EQ(Write(config), R"({"codec":7,"codec":{"level":4}})");
  config->FindChild("codec")->SetValue(Str("9"));
  config->FindChild("codec")->SetChild("level", Str("5"));
  EXPECT_TRUE(schema->Validate(config));
  EXPECT_EQ(Write(config), R"({"codec":9,"codec":{"level":5}})");
}

// The logger's callback may change the configuration while Validate walks it (the callback runs inside
// Validate, between two children). The node being visited is finished all the same, with its own
// children; the walk of its parent goes on over the list as the callback left it.
TEST(Resolver, ValidateFinishesTheVisitedNodeWhenTheLogCallbackEditsTheTree) {
  struct Case {
    const char* edit;
    std::function<void(const NodeRef&)> apply;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {"the visited node is removed",
       [](const NodeRef& root) { root->RemoveChild(HashedName("video")); },
       {"video.x1", "video.x2"}},
      {"a sibling is added, moving the list",
       [](const NodeRef& root) { root->GetOrCreateChild("late"); },
       {"video.x1", "video.x2", ".extra", ".late"}},
      {"every node is removed",
       [](const NodeRef& root) {
         while (!root->GetChildren().empty())
           root->RemoveChild(root->GetChildren().back());
       },
       {"video.x1", "video.x2"}},
  };
  GroupRef schema = Root();
  Declare(schema->AddGroup("video"), "fps", Int(60));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.edit);
    NodeRef config = std::make_shared<OptionNode>();
    NodeRef video = config->GetOrCreateChild("video");
    video->SetChild("x1", Int(1));
    video->SetChild("x2", Int(2));
    video->SetChild("fps", Str("30"));
    NodeRef extra = config->GetOrCreateChild("extra");
    extra->SetChild("y1", Int(1));
    extra->SetChild("y2", Int(2));
    video.reset();
    extra.reset();
    std::vector<std::string> lines;
    bool edited = false;
    Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) {
      const std::string line = text;
      lines.push_back(line.substr(line.find('\'') + 1, line.rfind('\'') - line.find('\'') - 1));
      if (!edited) c.apply(config);
      edited = true;
    });
    const bool valid = schema->Validate(config);
    Logger::SetCallback(Logger::LogCallback());
    EXPECT_FALSE(valid);
    EXPECT_EQ(lines, c.lines);
  }
}

TEST(Resolver, FailuresRaiseTheStandardErrorAndLeaveBothTreesAlone) {
  NodeRef config = std::make_shared<OptionNode>();
  config->SetChild("o", Str("1"));
  EXPECT_THROW(OptionGroup().Validate(config), std::bad_weak_ptr);
  EXPECT_TRUE(config->FindChild("o")->GetValue().Holds<StringType>());
  GroupRef schema = Root();
  DescriptorRef option = Declare(schema, "o", Int(1));
  Declare(schema, "p", Int(2), std::make_shared<CompareCondition>(*option, Int(1), nullptr));
  EXPECT_THROW(schema->ApplyDefaults(config), std::bad_function_call);
  EXPECT_EQ(config->GetChildren().size(), 1u);
  EXPECT_EQ(schema->GetOptions().size(), 2u);
}

}  // namespace
}  // namespace quorl::testing
