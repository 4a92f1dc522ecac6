// Cases that need a process in which no value type has been used yet; CTest runs each case in a process
// of its own. The case of type ids uses its types in a forked child, so that its process still has none
// registered if the other cases run in it afterwards.
//
// Every allocation of the option tree's growing operations, made to fail in turn: the failure must
// reach the caller as std::bad_alloc and leave a tree that is whole (each child linked to its parent,
// no node twice), holds what the operation had reached by its own order of steps, and takes a retry.
// The reading case meets the first registration of each type inside its sweep.
#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "options/options_test_support.h"
#include "support/failing_allocator.h"

namespace quorl::testing {
namespace {

// Ids follow first use from 1: a double's, then those of the types that writing it meets in its tests
// (bool, float, name, the four integers), and last the string's, which writing never meets.
TEST(ValueTypeIds, FollowFirstUseFromOneAndWritingJsonMeetsTypesInTheOrderOfItsTests) {
  auto scenario = [] {
    NodeRef root = Node();
    root->SetChild("rate", OptionValue::Of<DoubleType>(2.5));
    rapidjson::Document document;
    WriteJson(root, document.SetObject(), document.GetAllocator());
    for (const ValueTypeTable* table :
         {EnsureRegistered<DoubleType>(), EnsureRegistered<BoolType>(), EnsureRegistered<FloatType>(),
          EnsureRegistered<HashedNameType>(), EnsureRegistered<Int32Type>(), EnsureRegistered<UInt32Type>(),
          EnsureRegistered<Int64Type>(), EnsureRegistered<UInt64Type>(), EnsureRegistered<StringType>()})
      std::fprintf(stderr, "%d ", table->id);
    _exit(0);
  };
  EXPECT_EXIT(scenario(), ::testing::ExitedWithCode(0), "^1 2 3 4 5 6 7 8 9 $");
}

// A tree in pre-order, one line per node: depth, name, hash, value (a value whose table is set but whose
// payload is not, which a failed copy leaves, shows as such). On the way it checks that the tree is
// whole: every child names its parent, and no node is listed twice.
using Flat = std::vector<std::string>;

void Flatten(const NodeRef& node, int depth, Flat& out, std::set<const OptionNode*>& seen) {
  EXPECT_TRUE(seen.insert(node.get()).second) << "a node is listed twice: " << node->GetName().name;
  const OptionValue& value = node->GetValue();
  std::string text = value.IsEmpty() ? "-" : std::to_string(value.TypeId()) + ":";
  if (!value.IsEmpty()) text += value.GetPayload() ? value.ToText() : "<no payload>";
  out.push_back(std::to_string(depth) + " " + node->GetName().name + "#" +
                std::to_string(node->GetName().hash) + " = " + text);
  for (const NodeRef& child : node->GetChildren()) {
    EXPECT_EQ(child->GetParent(), node) << "a child does not link to its parent: " << child->GetName().name;
    Flatten(child, depth + 1, out, seen);
  }
}

Flat Flatten(const NodeRef& root) {
  Flat out;
  std::set<const OptionNode*> seen;
  Flatten(root, 0, out, seen);
  return out;
}

// Each count of nodes from `from` up to `to` is where at least one failed call stopped, and a later
// failure never stopped before an earlier one.
void ExpectEveryStepReached(const std::vector<std::size_t>& sizes, std::size_t from, std::size_t to) {
  EXPECT_TRUE(std::is_sorted(sizes.begin(), sizes.end())) << "a later failure undid what an earlier one kept";
  for (std::size_t size = from; size < to; ++size)
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), size), sizes.end()) << "no failure stopped at " << size;
}

// One value of each type that reading makes, long keys and texts, objects and arrays on several levels.
const char kDocument[] =
    R"({"a_member_name_longer_than_the_small_buffer":"a string value that is longer than the small buffer",)"
    R"("count":5,"unsigned_value":3000000000,"negative_wide":-3000000000,"huge":10000000000000000000,)"
    R"("ratio":0.25,"flag":true,"nothing":null,"nested_object_with_a_long_name":{)"
    R"("inner_list_with_a_long_name":[1,"a second string value, again a long one",{"x":false,"y":[]}],)"
    R"("empty":{}},"list":[1,2,3,4,5]})";

TEST(OptionsAllocationFailure, ReadJsonKeepsWhatItReadAndTakesARetry) {
  const rapidjson::Document document = Parse(kDocument);
  // The failed trees are kept and compared with the complete one once the sweep is over, so that
  // nothing but the sweep registers a value type first.
  std::vector<NodeRef> failed;
  NodeRef root = Node();
  auto keep = [&](std::size_t) {
    std::thread([] {
      const bool free = ValueTypeLock().try_lock();
      EXPECT_TRUE(free) << "the value type lock stays taken after the failure";
      if (free) ValueTypeLock().unlock();
    }).join();
    failed.push_back(std::exchange(root, Node()));
  };
  // Every node, key, text and first use of a type allocates.
  EXPECT_GE(SweepFailingAllocations([&] { ReadJson(root, document); }, keep), 20u);
  // A failed first registration left its type unregistered, so each type holds a slot of its own.
  for (const ValueTypeTable* table :
       {EnsureRegistered<BoolType>(), EnsureRegistered<Int32Type>(), EnsureRegistered<UInt32Type>(),
        EnsureRegistered<Int64Type>(), EnsureRegistered<UInt64Type>(), EnsureRegistered<DoubleType>(),
        EnsureRegistered<StringType>()}) {
    std::lock_guard<std::mutex> hold(ValueTypeLock());
    EXPECT_EQ(ValueTypeRegistry().at(table->id), table);
  }
  const Flat whole = Flatten(root);
  std::vector<std::size_t> sizes;
  for (const NodeRef& tree : failed) {
    const Flat partial = Flatten(tree);
    SCOPED_TRACE(::testing::Message() << "a read that failed with " << partial.size() << " nodes");
    sizes.push_back(partial.size());
    // The first nodes of the document in order; only the last may lack its value or its payload.
    ASSERT_LE(partial.size(), whole.size());
    for (std::size_t i = 0; i + 1 < partial.size(); ++i)
      ASSERT_EQ(partial[i], whole[i]);
    const std::string& last = partial.back();
    EXPECT_EQ(last.substr(0, last.find(" = ")), whole[partial.size() - 1].substr(0, last.find(" = ")));
    // A retry reads the whole document again behind what the failed read left.
    EXPECT_TRUE(ReadJson(tree, document));
    Flat expected = partial;
    expected.insert(expected.end(), whole.begin() + 1, whole.end());
    EXPECT_EQ(Flatten(tree), expected);
    if (HasFailure()) return;
  }
  // Each node is attached before its content is read, so a failure inside it keeps it.
  ExpectEveryStepReached(sizes, 1, whole.size());
}

TEST(OptionsAllocationFailure, ApplyDefaultsKeepsWhatItAddedAndARetryCompletesIt) {
  const GroupRef schema = PlayerSchema();
  // Some options set, one with a value of another type, one node that the schema does not know; the
  // schema adds options and groups, and leaves out an option and a group whose conditions fail.
  const auto fresh = [] {
    return Read(R"({"language":"fr","video":{"renderer":"vulkan","fps":"25"},"unknown":3,"network":{}})");
  };
  NodeRef config = fresh();
  const std::size_t before = Flatten(config).size();
  schema->ApplyDefaults(config);
  const Flat complete = Flatten(config);
  std::vector<std::size_t> sizes;
  config = fresh();
  auto check = [&](std::size_t) {
    sizes.push_back(Flatten(config).size());
    // Every node that the failed call added is complete, so a retry adds exactly what is missing, in
    // the order a clean run adds it.
    schema->ApplyDefaults(config);
    EXPECT_EQ(Flatten(config), complete);
    config = fresh();
  };
  EXPECT_GE(SweepFailingAllocations([&] { schema->ApplyDefaults(config); }, check), 10u);
  // Each added node has an allocation of its own, and when that fails the nodes added before it stay.
  ExpectEveryStepReached(sizes, before, complete.size());
}

// The node to copy onto, with a value and a child; long names and texts make every copy allocate.
NodeRef CopyTarget() {
  auto target = std::make_shared<OptionNode>(HashedName("the target, long enough to allocate"), Int(1));
  target->SetChild("kept, long enough to allocate",
                   Str("the value of the kept child, long enough to allocate"));
  return target;
}

TEST(OptionsAllocationFailure, CopyFromKeepsWholeCopiesInItsOrderOfSteps) {
  // A name and a value, and three children, one of them with children itself.
  const NodeRef source =
      std::make_shared<OptionNode>(HashedName("the source, long enough to allocate"),
                                   Str("the value of the source, long enough to allocate"));
  ReadJson(source, Parse(R"({"first_child_with_a_long_name":"first value, long enough to allocate",)"
                         R"("second_child_with_a_long_name":{"inner_child_with_a_long_name":7,)"
                         R"("x":["an element, long enough to allocate"]},"third":2.5})"));
  const Flat sourceFlat = Flatten(source);
  const Flat original = Flatten(CopyTarget());
  NodeRef target = CopyTarget();
  target->CopyFrom(source);
  const Flat clean = Flatten(target);
  // The source's name and value, the old child and then copies of the source's children.
  Flat expectedClean = sourceFlat;
  expectedClean.insert(expectedClean.begin() + 1, original.begin() + 1, original.end());
  ASSERT_EQ(clean, expectedClean);
  // What a failed value copy leaves: the new name, the value's type and no payload.
  const std::string valueFailed =
      clean[0].substr(0, clean[0].find(':', clean[0].find(" = ")) + 1) + "<no payload>";

  target = CopyTarget();
  auto check = [&](std::size_t) {
    EXPECT_EQ(Flatten(source), sourceFlat) << "the source changed";
    const Flat got = Flatten(target);
    ASSERT_GE(got.size(), original.size());
    EXPECT_TRUE(std::equal(original.begin() + 1, original.end(), got.begin() + 1)) << "the old child changed";
    // Behind the old child stand only whole copies of the source's first children.
    const auto& children = target->GetChildren();
    for (std::size_t i = 1; i < children.size(); ++i)
      EXPECT_EQ(Flatten(children[i]), Flatten(source->GetChildren().at(i - 1)))
          << "a copy appended unfinished";
    // The children, then the name, then the value.
    const bool allChildren = children.size() == 1 + source->GetChildren().size();
    EXPECT_TRUE(got[0] == original[0] || (allChildren && got[0] == valueFailed)) << got[0];
    // A retry appends the copies again behind what is there, and completes name and value.
    target->CopyFrom(source);
    Flat expected = clean;
    expected.insert(expected.begin() + original.size(), got.begin() + original.size(), got.end());
    EXPECT_EQ(Flatten(target), expected);
    target = CopyTarget();
  };
  EXPECT_GE(SweepFailingAllocations([&] { target->CopyFrom(source); }, check), 8u);
  EXPECT_EQ(Flatten(target), clean);
}

}  // namespace
}  // namespace quorl::testing
