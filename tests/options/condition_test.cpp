#include "options/condition.h"

#include <gtest/gtest.h>

#include <utility>

#include "options/options_test_support.h"

namespace quorl::testing {
namespace {

// A fixed answer that counts how often it was asked.
struct Probe : OptionCondition {
  explicit Probe(bool answer) : answer(answer) {}
  bool Evaluate(const GroupRef&, const NodeRef&) const override { return ++calls > 0 && answer; }
  uint64_t Weight(const GroupRef&) const override { return 10; }
  bool answer;
  mutable int calls = 0;
};

TEST(OptionCondition, AvailabilityFollowsReferencesAndIsComputedAfresh) {
  GroupRef schema = PlayerSchema();
  DescriptorRef tonemap = schema->FindOptionByPath({"video", "tonemap"});
  EXPECT_FALSE(tonemap->IsAvailable(nullptr));  // defaults alone, no configuration at all
  NodeRef config = Read(R"({"video":{"renderer":"vulkan","hdr":true}})");
  EXPECT_TRUE(tonemap->IsAvailable(config->FindByPath({"video", "hdr"})));  // any node reaches the root
  config->FindChild("video")->SetChild("renderer", Str("gl"));              // two links up the chain
  EXPECT_FALSE(tonemap->IsAvailable(config));
  EXPECT_EQ(tonemap->ConditionWeight(), 2u);
  EXPECT_EQ(schema->FindOption("muted")->ConditionWeight(), 0u);
  // A node without a value reads as the empty value; only an absent node reads as the default.
  ConditionRef isAuto = MakeEqual(schema->FindOptionByPath({"video", "renderer"}), Str("auto"));
  EXPECT_TRUE(isAuto->Evaluate(schema, Node()));
  config->FindChild("video")->SetChild("renderer", OptionValue());
  EXPECT_FALSE(isAuto->Evaluate(schema, config));
}

TEST(OptionCondition, OutermostGroupIsAskedFirstAndLogicNeverShortCircuits) {
  GroupRef root = std::make_shared<OptionGroup>();
  auto no = std::make_shared<Probe>(false);
  auto yes = std::make_shared<Probe>(true);
  EXPECT_FALSE(Declare(root->AddGroup("g", no)->AddGroup("h", yes), "o", Int(0), yes)->IsAvailable(nullptr));
  EXPECT_EQ(std::make_pair(no->calls, yes->calls), std::make_pair(1, 0));
  EXPECT_FALSE(MakeAnd(no, yes)->Evaluate(root, nullptr));
  EXPECT_TRUE(MakeOr(yes, no)->Evaluate(root, nullptr));
  EXPECT_EQ(std::make_pair(no->calls, yes->calls), std::make_pair(3, 2));
  EXPECT_FALSE(MakeAnd(yes, nullptr)->Evaluate(root, nullptr));
  EXPECT_TRUE(MakeOr(nullptr, yes)->Evaluate(root, nullptr));
  EXPECT_TRUE(MakeNot(nullptr)->Evaluate(root, nullptr));
  EXPECT_FALSE(MakeNot(yes)->Evaluate(root, nullptr));
  EXPECT_EQ(MakeAnd(yes, MakeNot(nullptr))->Weight(root), 12u);
}

TEST(OptionCondition, ComparisonsOrderByTypeIdThenByValue) {
  GroupRef root = std::make_shared<OptionGroup>();
  DescriptorRef n = Declare(root, "n", Int(5));
  DescriptorRef empty = Declare(root, "e", OptionValue());
  DescriptorRef off = Declare(root, "off", Int(5), MakeAnd(nullptr, nullptr));
  using Make = ConditionRef (*)(const DescriptorRef&, const OptionValue&);
  auto holds = [&](Make make, const DescriptorRef& option, const OptionValue& value) {
    return make(option, value)->Evaluate(root, nullptr);
  };
  EXPECT_TRUE(holds(MakeGreater, n, Int(4)) && holds(MakeGreaterEqual, n, Int(5)));
  EXPECT_TRUE(holds(MakeLess, n, Int(6)) && holds(MakeLessEqual, n, Int(5)));
  EXPECT_FALSE(holds(MakeGreater, n, Int(5)) || holds(MakeLess, n, Int(5)));
  EXPECT_TRUE(holds(MakeEqual, empty, {}) && holds(MakeLessEqual, empty, {}) &&
              holds(MakeGreaterEqual, empty, {}));
  EXPECT_FALSE(holds(MakeNotEqual, empty, {}) || holds(MakeLess, empty, {}) || holds(MakeGreater, empty, {}));
  EXPECT_FALSE(holds(MakeEqual, n, Str("5")));
  EXPECT_EQ(holds(MakeGreater, n, Str("9")), Int(5).TypeId() > Str("9").TypeId());  // ids alone decide
  EXPECT_TRUE(holds(MakeContains, n, Str("5")) && holds(MakeContains, n, {}));
  EXPECT_FALSE(holds(MakeContains, n, Str("55")));
  for (Make make : {MakeEqual, MakeNotEqual, MakeLess, MakeGreaterEqual, MakeContains}) {
    EXPECT_FALSE(holds(make, off, Int(5)));  // an unavailable option satisfies nothing...
    EXPECT_TRUE(MakeNot(make(off, Int(5)))->Evaluate(root, nullptr));  // ...so every negation holds
  }
}

TEST(OptionCondition, PathIsFrozenWhenTheConditionIsBuilt) {
  GroupRef root = std::make_shared<OptionGroup>();
  auto late = std::make_shared<OptionGroup>("late", nullptr);
  DescriptorRef option = Declare(late, "o", Int(1));
  ConditionRef early = MakeEqual(option, Int(1));
  root->AddChild(late);
  ConditionRef after = MakeEqual(option, Int(1));
  EXPECT_FALSE(early->Evaluate(root, nullptr));  // the short path no longer names it
  EXPECT_TRUE(after->Evaluate(root, nullptr));
  EXPECT_EQ(MakeAnd(early, after)->Weight(root), 3u);
}

}  // namespace
}  // namespace quorl::testing
