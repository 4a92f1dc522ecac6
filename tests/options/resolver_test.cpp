#include "options/resolver.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "options/options_test_support.h"

namespace quorl::testing {
namespace {

std::string Problem(const std::string& message) {
  return "3 Qz LOG:\t" + message + "\n";
}

// One pass reports every problem and coerces, through text, every value met before and after them; nothing
// below an unavailable group is visited, range and choices limit nothing. ApplyDefaults coerces nothing.
TEST(Resolver, PlayerSettingsFromJsonAreReportedCoercedAndCompleted) {
  GroupRef schema = PlayerSchema();
  NodeRef config = Read(R"({"volume":1.0000001,"muted":"yes","a":1,"fps":25,"subtitles":{"size":"30","b":2},)"
                        R"("video":{"renderer":"vulkan","hdr":"true","fps":"30","shader":"x"},)"
                        R"("network":{"bitrate":8000000,"proxy":"host"},"b":3})");
  LogCapture log;
  EXPECT_FALSE(schema->Validate(config));
  EXPECT_EQ(log.lines,
            (std::vector<std::string>{Problem("Option not found '.a'"), Problem("Option not found '.fps'"),
                                      Problem("Option .subtitles not available in this configuration"),
                                      Problem("Option not found 'video.shader'"),
                                      Problem("Option network.proxy not available in this configuration"),
                                      Problem("Option not found '.b'")}));
  EXPECT_EQ(Write(config),
            R"({"volume":1.0,"muted":false,"a":1,"fps":25,"b":3,"subtitles":{"size":"30","b":2},)"
            R"("video":{"renderer":"vulkan","hdr":true,"fps":30,"shader":"x"},)"
            R"("network":{"bitrate":8000000,"proxy":"host"}})");
  EXPECT_TRUE(config->FindByPath({"network", "bitrate"})->GetValue().Holds<Int64Type>());
  config->SetChild("language", Str("de"));
  schema->ApplyDefaults(config);
  EXPECT_EQ(Write(config),
            R"({"volume":1.0,"muted":false,"a":1,"fps":25,"b":3,"language":"de",)"
            R"("subtitles":{"size":"30","b":2,"font":"sans"},)"
            R"("video":{"renderer":"vulkan","hdr":true,"fps":30,"shader":"x","tonemap":"reinhard"},)"
            R"("network":{"bitrate":8000000,"proxy":"host","cache":true}})");
  EXPECT_TRUE(schema->Validate(Node()));
}

TEST(Resolver, DefaultsFollowAvailabilityAndLeavePresentNodesAlone) {
  GroupRef schema = PlayerSchema();
  NodeRef config = Read(R"({"muted":"no","network":{"cache":false}})");
  schema->ApplyDefaults(config);
  EXPECT_EQ(Write(config), R"({"muted":"no","volume":0.800000011920929,"language":"en",)"
                           R"("network":{"cache":false,"bitrate":5000000,"proxy":""},)"
                           R"("video":{"renderer":"auto","fps":60}})");
  config->FindChild("video")->SetChild("renderer", Str("vulkan"));
  schema->ApplyDefaults(config);
  EXPECT_TRUE(config->FindByPath({"video", "hdr"}));
  EXPECT_FALSE(config->FindByPath({"video", "tonemap"}));  // hdr's default is false
  NodeRef before = Node();
  before->CopyChildrenFrom(config);
  schema->ApplyDefaults(config);  // a second pass changes nothing
  EXPECT_TRUE(before->Equals(config));
}

TEST(Resolver, AProblemStaysInTheResultWhenAGroupAfterItIsClean) {
  GroupRef schema = std::make_shared<OptionGroup>();
  Declare(schema->AddGroup("video"), "fps", Int(60));
  NodeRef config = Read(R"({"x":1,"video":{"fps":"30"}})");
  LogCapture log;
  EXPECT_FALSE(schema->Validate(config));
  EXPECT_EQ(log.lines, std::vector<std::string>{Problem("Option not found '.x'")});
  EXPECT_EQ(*config->FindByPath({"video", "fps"})->GetValue().Get<Int32Type>(), 30);
}

TEST(Resolver, ANameOfOptionAndGroupIsValidatedAsGroupThenCoercedAsOption) {
  GroupRef schema = std::make_shared<OptionGroup>();
  Declare(schema, "codec", Int(7));
  Declare(schema->AddGroup("codec"), "level", Int(4));
  NodeRef config = Node();
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
  GroupRef schema = std::make_shared<OptionGroup>();
  Declare(schema->AddGroup("video"), "fps", Int(60));
  for (const bool removeVisited : {true, false}) {
    SCOPED_TRACE(removeVisited ? "the visited node is removed" : "a sibling is added, moving the list");
    NodeRef config = Read(R"({"video":{"x1":1,"fps":"30","x2":2},"extra":{"y1":1,"y2":2}})");
    const NodeRef fps = config->FindByPath({"video", "fps"});
    std::vector<std::string> names;
    Logger::SetCallback([&](Logger::LOG_TYPE, const char* text) {
      const std::string line = text;
      names.push_back(line.substr(line.find('\'') + 1, line.rfind('\'') - line.find('\'') - 1));
      if (names.size() > 1) return;
      if (removeVisited)
        config->RemoveChild(HashedName("video"));
      else
        config->GetOrCreateChild("late");
    });
    const bool valid = schema->Validate(config);
    Logger::SetCallback(Logger::LogCallback());
    EXPECT_FALSE(valid);
    const std::vector<std::string> expected = {"video.x1", "video.x2", ".extra", ".late"};
    EXPECT_EQ(names, std::vector<std::string>(expected.begin(), expected.begin() + (removeVisited ? 2 : 4)));
    EXPECT_TRUE(fps->GetValue().Holds<Int32Type>());
  }
}

TEST(Resolver, FailuresRaiseTheStandardErrorAndLeaveTheConfigurationAlone) {
  NodeRef config = Read(R"({"o":"1"})");
  EXPECT_THROW(OptionGroup().Validate(config), std::bad_weak_ptr);
  EXPECT_TRUE(config->FindChild("o")->GetValue().Holds<StringType>());
  GroupRef schema = std::make_shared<OptionGroup>();
  DescriptorRef option = Declare(schema, "o", Int(1));
  Declare(schema, "p", Int(2), std::make_shared<CompareCondition>(*option, Int(1), nullptr));
  EXPECT_THROW(schema->ApplyDefaults(config), std::bad_function_call);
  EXPECT_EQ(config->GetChildren().size(), 1u);
}

}  // namespace
}  // namespace quorl::testing
