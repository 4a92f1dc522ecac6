// Every allocation of the option tree's growing operations, made to fail in turn: the failure must
// reach the caller as std::bad_alloc and leave a tree that is whole (each child linked to its parent,
// no node twice), holds what the operation had reached by its own order of steps, and takes a retry.
//
// Each case runs in a process of its own, so that no value type is registered when it starts: the
// reading case then meets the first registration of each type inside its sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "options/json.h"
#include "options/schema_test_support.h"
#include "support/failing_allocator.h"

namespace quorl::testing {
namespace {

// Longer than any small-string buffer, so that every copy allocates.
std::string LongText(const std::string& stem) {
  return stem + std::string(40, '_');
}

bool ValueTypeLockFreeForOthers() {
  bool free = false;
  std::thread other([&free] {
    free = ValueTypeLock().try_lock();
    if (free) ValueTypeLock().unlock();
  });
  other.join();
  return free;
}

// A value as text for comparisons; a value whose table is set but whose payload is not (what a failed
// copy or SetTyped leaves) shows as such without being read.
std::string Describe(const OptionValue& value) {
  if (value.IsEmpty()) return "-";
  if (value.GetPayload() == nullptr) return std::to_string(value.TypeId()) + ":<no payload>";
  return std::to_string(value.TypeId()) + ":" + value.ToText();
}

// A tree in pre-order, one line per node: depth, name, hash, value.
using Flat = std::vector<std::string>;

void Flatten(const NodeRef& node, int depth, Flat& out) {
  out.push_back(std::to_string(depth) + " " + node->GetName().name + "#" +
                std::to_string(node->GetName().hash) + " = " + Describe(node->GetValue()));
  for (const NodeRef& child : node->GetChildren())
    Flatten(child, depth + 1, out);
}

Flat Flatten(const NodeRef& node) {
  Flat out;
  Flatten(node, 0, out);
  return out;
}

// Flattened entries of the root's children, without the root's own line.
Flat Below(const Flat& flat) {
  return Flat(flat.begin() + 1, flat.end());
}

Flat Concat(Flat a, const Flat& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Every child names its parent, and no node is listed twice anywhere in the tree.
void ExpectWhole(const NodeRef& node, std::set<const OptionNode*>& seen) {
  EXPECT_TRUE(seen.insert(node.get()).second) << "a node is listed twice: " << node->GetName().name;
  for (const NodeRef& child : node->GetChildren()) {
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->GetParent(), node) << "a child does not link to its parent: " << child->GetName().name;
    ExpectWhole(child, seen);
  }
}

void ExpectWhole(const NodeRef& root) {
  std::set<const OptionNode*> seen;
  ExpectWhole(root, seen);
}

// The entry without its value: depth, name and hash.
std::string Place(const std::string& entry) {
  return entry.substr(0, entry.find(" = "));
}

// `partial` is what a read in document order had made when it stopped: the first entries of `whole`,
// of which only the last may lack its value, or hold a type with no payload yet.
void ExpectLeadingPartOf(const Flat& partial, const Flat& whole) {
  ASSERT_LE(partial.size(), whole.size());
  for (std::size_t i = 0; i + 1 < partial.size(); ++i)
    ASSERT_EQ(partial[i], whole[i]) << "entry " << i;
  if (partial.empty()) return;
  const std::string& last = partial.back();
  const std::string& expected = whole[partial.size() - 1];
  if (last == expected) return;
  EXPECT_EQ(Place(last), Place(expected));
  const std::string value = last.substr(last.find(" = ") + 3);
  const std::string expectedType =
      expected.substr(expected.find(" = ") + 3, expected.find(':') - expected.find(" = ") - 3);
  EXPECT_TRUE(value == "-" || value == expectedType + ":<no payload>") << last << " against " << expected;
}

// The document reads into one value of each type that reading makes, with long keys and texts, in
// objects and arrays of several levels.
const char kDocument[] = R"({
  "a_member_name_longer_than_the_small_buffer": "a string value that is longer than the small buffer",
  "count": 5,
  "unsigned_value": 3000000000,
  "negative_wide": -3000000000,
  "huge": 10000000000000000000,
  "ratio": 0.25,
  "flag": true,
  "nothing": null,
  "nested_object_with_a_long_name": {
    "inner_list_with_a_long_name": [1, "a second string value, again a long one", {"x": false, "y": []}],
    "empty": {}
  },
  "list": [1, 2, 3, 4, 5]
})";

TEST(OptionsAllocationFailure, ReadJsonKeepsWhatItReadAndTakesARetry) {
  rapidjson::Document document;
  document.Parse(kDocument);
  ASSERT_FALSE(document.HasParseError());

  // The trees that failed are kept and compared with the complete one once the sweep is over, so that
  // nothing but the sweep registers a value type first.
  std::vector<NodeRef> failed;
  NodeRef root = std::make_shared<OptionNode>();
  bool result = false;
  const std::size_t failures = SweepFailingAllocations([&] { result = ReadJson(root, document); },
                                                       [&](std::size_t) {
                                                         ExpectWhole(root);
                                                         EXPECT_TRUE(ValueTypeLockFreeForOthers());
                                                         failed.push_back(root);
                                                         root = std::make_shared<OptionNode>();
                                                       });
  // Every node, key, text and first use of a type allocates.
  EXPECT_GE(failures, 20u);
  EXPECT_TRUE(result);  // the last member, an array, ends with a number
  ExpectWhole(root);
  const Flat whole = Flatten(root);

  std::size_t reached = 0;
  for (std::size_t n = 0; n < failed.size(); ++n) {
    SCOPED_TRACE(::testing::Message() << "allocation " << n + 1 << " failed");
    const Flat partial = Flatten(failed[n]);
    ExpectLeadingPartOf(partial, whole);
    // A later allocation fails further on: nothing that was complete is dropped by the failure.
    EXPECT_GE(partial.size(), reached);
    reached = partial.size();
    // A retry reads the whole document again behind what the failed read left.
    EXPECT_TRUE(ReadJson(failed[n], document));
    ExpectWhole(failed[n]);
    EXPECT_EQ(Flatten(failed[n]), Concat(partial, Below(whole)));
    if (HasFailure()) break;
  }
  // The failures are spread over the whole document, not all at its start.
  EXPECT_GT(reached, whole.size() / 2);

  // With every type registered, each run makes the same allocations in the same order, so the
  // allocation of each node fails once, and the read then holds exactly the nodes before it. A read
  // that attached a member only once it was read would drop the member's finished part instead.
  std::set<std::size_t> sizes;
  NodeRef again = std::make_shared<OptionNode>();
  SweepFailingAllocations([&] { ReadJson(again, document); },
                          [&](std::size_t) {
                            sizes.insert(Flatten(again).size());
                            again = std::make_shared<OptionNode>();
                          });
  for (std::size_t size = 1; size < whole.size(); ++size)
    EXPECT_EQ(sizes.count(size), 1u) << "no failed read stopped with exactly " << size << " nodes";
}

// A schema with options of several types under groups and conditions, some options and groups not
// available in the configuration below.
GroupRef PlayerSchema() {
  GroupRef root = Root();
  Declare(root, "volume_level_of_the_main_output", OptionValue::Of<FloatType>(0.8f));
  DescriptorRef language = Declare(root, "language", Str(LongText("english")));
  GroupRef video = root->AddGroup(LongText("video"));
  DescriptorRef renderer = Declare(video, "renderer", Str(LongText("automatic")));
  DescriptorRef hdr =
      Declare(video, LongText("high_dynamic_range").c_str(), Bool(false), MakeEqual(renderer, Str("vulkan")));
  Declare(video, LongText("tonemap").c_str(), Str(LongText("reinhard")), MakeEqual(hdr, Bool(true)));
  Declare(video, "fps", Int(60));
  GroupRef advanced = video->AddGroup(LongText("advanced"));
  Declare(advanced, LongText("swap_interval").c_str(), OptionValue::Of<Int64Type>(1));
  Declare(advanced, LongText("shader_cache").c_str(), Str(LongText("cache")));
  GroupRef subtitles =
      root->AddGroup(LongText("subtitles"), MakeNotEqual(language, Str(LongText("english"))));
  Declare(subtitles, "size", Int(24));
  GroupRef network = root->AddGroup(LongText("network"));
  Declare(network, LongText("bitrate").c_str(), OptionValue::Of<UInt64Type>(5000000));
  Declare(network, LongText("proxy").c_str(), Str(LongText("none")),
          MakeEqual(Declare(network, "cache", Bool(true)), Bool(false)));
  return root;
}

// A configuration as a document gives it: some options set, one of them with a value of another type,
// one node the schema does not know.
NodeRef PlayerConfiguration() {
  NodeRef root = std::make_shared<OptionNode>();
  root->SetChild("language", Str(LongText("french")));
  NodeRef video = root->GetOrCreateChild(LongText("video"));
  video->SetChild("renderer", Str("vulkan"));
  video->SetChild("fps", Str("25"));
  root->SetChild(LongText("unknown_setting"), Int(3));
  return root;
}

TEST(OptionsAllocationFailure, ApplyDefaultsKeepsWhatItAddedAndARetryCompletesIt) {
  const GroupRef schema = PlayerSchema();
  std::vector<NodeRef> failed;
  NodeRef config = PlayerConfiguration();
  const Flat before = Flatten(config);
  const std::size_t failures = SweepFailingAllocations([&] { schema->ApplyDefaults(config); },
                                                       [&](std::size_t) {
                                                         ExpectWhole(config);
                                                         EXPECT_TRUE(ValueTypeLockFreeForOthers());
                                                         failed.push_back(config);
                                                         config = PlayerConfiguration();
                                                       });
  EXPECT_GE(failures, 10u);
  ExpectWhole(config);
  const Flat complete = Flatten(config);
  ASSERT_GT(complete.size(), before.size());
  std::size_t reached = before.size();
  std::set<std::size_t> sizes;
  for (std::size_t n = 0; n < failed.size(); ++n) {
    SCOPED_TRACE(::testing::Message() << "allocation " << n + 1 << " failed");
    const Flat partial = Flatten(failed[n]);
    sizes.insert(partial.size());
    // A later allocation fails further on: the nodes added before a failure stay.
    EXPECT_GE(partial.size(), reached);
    reached = partial.size();
    // Every node that the failed call added is complete, so a retry adds exactly what is missing, in
    // the order a clean run adds it.
    schema->ApplyDefaults(failed[n]);
    ExpectWhole(failed[n]);
    EXPECT_EQ(Flatten(failed[n]), complete);
    if (HasFailure()) break;
  }
  // Each added node has an allocation of its own, and when that fails the nodes added before it stay:
  // the failures leave every count of nodes from none added to all but one.
  for (std::size_t size = before.size(); size < complete.size(); ++size)
    EXPECT_EQ(sizes.count(size), 1u) << "no failed call stopped with exactly " << size << " nodes";
}

NodeRef Node(const std::string& name, const OptionValue& value = OptionValue()) {
  return std::make_shared<OptionNode>(HashedName(name), value);
}

// The node to copy: a long name and text value, and three children, one of them with children itself.
NodeRef CopySource() {
  NodeRef source = Node(LongText("source"), Str(LongText("source value")));
  source->SetChild(LongText("first"), Str(LongText("first value")));
  NodeRef second = source->GetOrCreateChild(LongText("second"));
  second->SetChild(LongText("inner"), Int(7));
  second->AddValue(Str(LongText("element")));
  source->SetChild(LongText("third"), OptionValue::Of<DoubleType>(2.5));
  return source;
}

NodeRef CopyTarget() {
  NodeRef target = Node(LongText("target"), Int(1));
  target->SetChild(LongText("kept"), Str(LongText("kept value")));
  return target;
}

TEST(OptionsAllocationFailure, CopyFromKeepsWholeCopiesInItsOrderOfSteps) {
  const NodeRef source = CopySource();
  const Flat sourceFlat = Flatten(source);
  const NodeRef original = CopyTarget();
  const Flat originalFlat = Flatten(original);

  // The copies of the source's children, each with its subtree, as a clean copy appends them.
  const NodeRef clean = CopyTarget();
  clean->CopyFrom(source);
  const Flat cleanFlat = Flatten(clean);
  ASSERT_EQ(Concat(Below(originalFlat), Below(sourceFlat)), Below(cleanFlat));
  std::vector<std::size_t> childEnds;  // where, in the flattened source, each top-level child's part ends
  for (std::size_t i = 2; i <= sourceFlat.size(); ++i) {
    if (i == sourceFlat.size() || sourceFlat[i].rfind("1 ", 0) == 0) childEnds.push_back(i - 1);
  }
  ASSERT_EQ(childEnds.size(), source->GetChildren().size());

  NodeRef target = CopyTarget();
  const std::size_t failures = SweepFailingAllocations(
      [&] { target->CopyFrom(source); },
      [&](std::size_t) {
        ExpectWhole(target);
        EXPECT_EQ(Flatten(source), sourceFlat) << "the source changed";
        const Flat got = Flatten(target);
        ASSERT_GE(got.size(), originalFlat.size());
        const Flat added(got.begin() + static_cast<std::ptrdiff_t>(originalFlat.size()), got.end());
        ASSERT_LT(added.size(), sourceFlat.size());
        EXPECT_EQ(Flat(got.begin() + 1, got.begin() + static_cast<std::ptrdiff_t>(originalFlat.size())),
                  Below(originalFlat))
            << "the old children changed";
        // Only whole copies of the source's first children were appended.
        const Flat expectedPart(sourceFlat.begin() + 1,
                                sourceFlat.begin() + 1 + static_cast<std::ptrdiff_t>(added.size()));
        EXPECT_EQ(added, expectedPart);
        const bool allChildren = added.size() + 1 == sourceFlat.size();
        EXPECT_TRUE(added.empty() || allChildren ||
                    std::find(childEnds.begin(), childEnds.end(), added.size()) != childEnds.end())
            << "a child was appended before its copy was complete";
        // Children, then the name, then the value; a failed value copy leaves the type without payload.
        const bool newName = target->GetName().hash == source->GetName().hash;
        EXPECT_TRUE(allChildren || !newName) << "the name was copied before all children";
        EXPECT_EQ(target->GetName().name, newName ? source->GetName().name : original->GetName().name);
        const std::string value = Describe(target->GetValue());
        if (!newName) {
          EXPECT_EQ(value, Describe(original->GetValue()));
        } else {
          EXPECT_TRUE(value == Describe(original->GetValue()) ||
                      value == std::to_string(source->GetValue().TypeId()) + ":<no payload>")
              << value;
        }
        // A retry appends the copies again behind what is there, and completes name and value.
        target->CopyFrom(source);
        ExpectWhole(target);
        Flat expected = cleanFlat;
        expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(originalFlat.size()), added.begin(),
                        added.end());
        EXPECT_EQ(Flatten(target), expected);
        target = CopyTarget();
      });
  EXPECT_GE(failures, 8u);
  ExpectWhole(target);
  EXPECT_EQ(Flatten(target), cleanFlat);
}

}  // namespace
}  // namespace quorl::testing
