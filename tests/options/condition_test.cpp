#include "options/condition.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "options/schema_test_support.h"

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
  GroupRef root = Root();
  GroupRef video = root->AddGroup("video");
  DescriptorRef mode = Declare(root, "mode", Str("basic"));
  DescriptorRef hdr = Declare(video, "hdr", Bool(false), MakeEqual(mode, Str("expert")));
  DescriptorRef tonemap = Declare(video, "tonemap", Str("none"), MakeEqual(hdr, Bool(true)));
  DescriptorRef curve = Declare(video, "curve", Int(1), MakeNotEqual(tonemap, Str("none")));
  NodeRef config = std::make_shared<OptionNode>();
  EXPECT_FALSE(curve->IsAvailable(nullptr));  // defaults alone, no configuration at all
  config->SetChild("mode", Str("expert"));
  NodeRef v = config->GetOrCreateChild("video");
  v->SetChild("hdr", Bool(true));
  v->SetChild("tonemap", Str("filmic"));
  EXPECT_TRUE(curve->IsAvailable(v->FindChild("tonemap")));  // any node reaches the same root
  config->SetChild("mode", Str("basic"));                    // three links up the chain
  EXPECT_FALSE(curve->IsAvailable(config));
  EXPECT_EQ(curve->ConditionWeight(), 3u);
  EXPECT_EQ(mode->ConditionWeight(), 0u);
}

TEST(OptionCondition, OutermostGroupIsAskedFirstAndLogicNeverShortCircuits) {
  GroupRef root = Root();
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
  GroupRef root = Root();
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

TEST(OptionCondition, AnAbsentNodeReadsTheDefaultAndAnEmptyNodeReadsEmpty) {
  GroupRef root = Root();
  ConditionRef isDefault = MakeEqual(Declare(root, "n", Int(5)), Int(5));
  NodeRef config = std::make_shared<OptionNode>();
  EXPECT_TRUE(isDefault->Evaluate(root, config));
  config->GetOrCreateChild("n");
  EXPECT_FALSE(isDefault->Evaluate(root, config));
}

TEST(OptionCondition, PathIsFrozenWhenTheConditionIsBuilt) {
  GroupRef root = Root();
  auto late = std::make_shared<OptionGroup>("late", nullptr);
  DescriptorRef option = Declare(late, "o", Int(1));
  auto early = std::static_pointer_cast<CompareCondition>(MakeEqual(option, Int(1)));
  root->AddChild(late);
  auto after = std::static_pointer_cast<CompareCondition>(MakeEqual(option, Int(1)));
  EXPECT_EQ(early->GetPath().size(), 1u);
  EXPECT_EQ(after->GetPath().size(), 2u);
  EXPECT_FALSE(early->Evaluate(root, nullptr));  // the short path no longer names it
  EXPECT_TRUE(after->Evaluate(root, nullptr));
  EXPECT_EQ(MakeAnd(early, after)->Weight(root), 3u);
}

TEST(OptionCondition, UnsetPredicateRaisesBadFunctionCall) {
  GroupRef root = Root();
  CompareCondition broken(*Declare(root, "o", Int(1)), Int(1), nullptr);
  EXPECT_THROW(broken.Evaluate(root, nullptr), std::bad_function_call);
  EXPECT_THROW(LogicCondition(nullptr, nullptr, nullptr).Evaluate(root, nullptr), std::bad_function_call);
}

}  // namespace
}  // namespace quorl::testing
