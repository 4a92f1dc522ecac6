#include "options/node.h"

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

namespace quorl {
namespace {

using Ref = std::shared_ptr<OptionNode>;

Ref Node() {
  return std::make_shared<OptionNode>();
}
OptionValue Int(int32_t v) {
  return OptionValue::Of<Int32Type>(v);
}

std::vector<std::string> NamesOf(const Ref& node) {
  std::vector<std::string> names;
  for (const Ref& child : node->GetChildren())
    names.push_back(child->GetName().name);
  return names;
}

TEST(OptionNode, LookUpsCompareHashesAndTheEarlierChildWins) {
  Ref root = Node();
  root->AddChild(std::make_shared<OptionNode>(HashedName("first", 77), Int(1)));
  root->AddChild(std::make_shared<OptionNode>(HashedName("second", 77), Int(2)));
  EXPECT_EQ(root->FindChild(HashedName("other", 77))->GetName().name, "first");
  EXPECT_FALSE(root->HasChild("first"));  // its real hash is not 77
  EXPECT_EQ(root->GetOrCreateChild(HashedName("new", 77)), root->GetChildren()[0]);
  root->SetChild(HashedName("x", 77), Int(9));
  OptionValue out = Int(-5);
  EXPECT_FALSE(root->GetChildValue("missing", out));
  EXPECT_EQ(out, Int(-5));
  EXPECT_TRUE(root->GetChildValue(HashedName("", 77), out));
  EXPECT_EQ(out, Int(9));
  EXPECT_EQ(root->GetChildren().size(), 2u);
}

TEST(OptionNode, AddChildMovesNodesBetweenAndWithinParents) {
  Ref left = Node();
  Ref right = Node();
  Ref a = left->GetOrCreateChild("a");
  left->GetOrCreateChild("b");
  EXPECT_EQ(left->AddChild(a), a);
  EXPECT_EQ(NamesOf(left), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(right->AddChild(a), a);
  EXPECT_EQ(NamesOf(left), std::vector<std::string>{"b"});
  EXPECT_EQ(a->GetParent(), right);
  EXPECT_EQ(right->AddChild(nullptr), nullptr);
  right->RemoveChild(left->GetChildren()[0]);  // not right's child
  EXPECT_EQ(left->GetChildren().size(), 1u);

  OptionNode loose;  // not held by a shared reference; the detaching has happened all the same
  EXPECT_THROW(loose.AddChild(a), std::bad_weak_ptr);
  EXPECT_TRUE(right->GetChildren().empty());
  EXPECT_THROW(loose.AddValue(Int(1)), std::bad_weak_ptr);
  EXPECT_TRUE(loose.GetChildren().empty());
}

// The caller's reference may be the parent's own list entry, which the detaching erases (and refills with
// the next child).
TEST(OptionNode, RemoveChildAcceptsTheEntryOfTheParentsOwnList) {
  Ref root = Node();
  std::weak_ptr<OptionNode> first = root->GetOrCreateChild("a");
  Ref second = root->GetOrCreateChild("b");
  root->RemoveChild(root->GetChildren().front());
  EXPECT_TRUE(first.expired());
  EXPECT_EQ(root->GetChildren(), std::vector<Ref>{second});
  EXPECT_EQ(second->GetParent(), root);
  root->RemoveChild(root->GetChildren().back());
  EXPECT_TRUE(root->GetChildren().empty());
  EXPECT_EQ(second->GetParent(), nullptr);
}

// True when OptionNode offers a way to list a caller's node as a child without AddChild's detaching, which
// would leave that node under two parents.
template <class N, class = void>
struct AttachesWithoutDetaching : std::false_type {};
template <class N>
struct AttachesWithoutDetaching<
    N, std::void_t<decltype(std::declval<N&>().AddNewChild(std::declval<const std::shared_ptr<N>&>()))>>
    : std::true_type {};

TEST(OptionNode, OnlyAddChildTakesACallersNodeSoEachNodeHasOneParent) {
  EXPECT_FALSE(AttachesWithoutDetaching<OptionNode>::value);
  // The reader's fast path makes its own nodes, appending beside an earlier child of the same hash.
  Ref root = Node();
  root->SetChild("key", Int(1));
  Ref made = root->AddNewChild("key");
  EXPECT_EQ(root->GetChildren(), (std::vector<Ref>{root->FindChild("key"), made}));
  EXPECT_EQ(made->GetParent(), root);
  EXPECT_TRUE(made->GetValue().IsEmpty());
  OptionNode loose;
  EXPECT_THROW(loose.AddNewChild("x"), std::bad_weak_ptr);
}

TEST(OptionNode, DetachedAndOrphanedNodesAreTheirOwnRoots) {
  Ref root = Node();
  Ref mid = root->GetOrCreateChild("mid");
  Ref kept = mid->GetOrCreateChild("kept");
  OptionPath path;
  mid->RemoveChild(kept);
  kept->GetPath(path);
  EXPECT_TRUE(path.empty());
  root->GetOrCreateChild("other")->AddChild(kept);
  root.reset();  // the tree above `kept` dies
  EXPECT_EQ(kept->GetRoot(), kept);
}

TEST(OptionNode, PathsNameUnnamedNodesByPositionButFindThemByHash) {
  Ref root = Node();
  Ref list = root->GetOrCreateChild("list");
  for (int i = 0; i < 3; ++i)
    list->AddValue(Int(i));
  Ref inner = list->GetChildren()[2]->GetOrCreateChild("inner");
  OptionPath path;
  inner->GetPath(path);
  ASSERT_EQ(path.size(), 3u);
  EXPECT_EQ(path[1].name, "2");
  EXPECT_EQ(path[1].hash, NameHash("2"));
  EXPECT_EQ(path[2].name, "inner");

  EXPECT_EQ(inner->FindByPath({}), root);
  EXPECT_EQ(inner->FindByPath({"list"}), list);  // walked from the root
  EXPECT_EQ(root->FindByPath(path), nullptr);    // "2" is compared with hashes, all 0
  EXPECT_EQ(root->FindByPath({"list", HashedName("abc", 5)}), list->GetChildren()[0]);
  EXPECT_EQ(root->FindByPath({"list", "1"}), nullptr);
  list->AddChild(std::make_shared<OptionNode>(HashedName("", 7), Int(7)));
  EXPECT_EQ(root->FindByPath({"list", "7"}), list->GetChildren()[3]);
  EXPECT_EQ(root->FindByPath({"list", "0", "x"}), nullptr);  // through a leaf

  Ref made = inner->GetOrCreateByPath({"list", "2", "x"});
  EXPECT_EQ(made->GetParent()->GetParent(), list);  // a named child "2" beside the elements
  EXPECT_EQ(root->GetOrCreateByPath({"list", "2", "x"}), made);
}

TEST(OptionNode, EqualsIgnoresOrderInObjectsOnly) {
  Ref a = std::make_shared<OptionNode>(HashedName("a"));
  Ref b = std::make_shared<OptionNode>(HashedName("b"));
  a->SetChild("x", Int(1));
  a->SetChild("y", Int(2));
  b->SetChild("y", Int(2));
  b->SetChild("x", Int(1));
  EXPECT_TRUE(a->Equals(b));
  b->SetChild("x", Int(3));
  EXPECT_FALSE(a->Equals(b));
  EXPECT_FALSE(a->Equals(nullptr));
  Ref p = Node(), q = Node();
  p->AddValue(Int(1));
  p->AddValue(Int(2));
  q->AddValue(Int(2));
  q->AddValue(Int(1));
  EXPECT_FALSE(p->Equals(q));
  p->SetValue(OptionValue::Of<DoubleType>(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(p->Equals(p));
  Ref one = Node(), oneFloat = Node();
  one->SetValue(Int(1));
  oneFloat->SetValue(OptionValue::Of<FloatType>(1.0f));
  EXPECT_FALSE(one->Equals(oneFloat));
  EXPECT_FALSE(Node()->Equals(one));
}

TEST(OptionNode, CopyFromIsDeepAndAppends) {
  Ref source = std::make_shared<OptionNode>(HashedName("src"), OptionValue::Of<StringType>("text"));
  source->GetOrCreateChild("a")->AddValue(Int(1));
  source->SetChild("b", Int(2));
  Ref target = Node();
  target->SetChild("a", Int(0));
  target->CopyFrom(source);
  EXPECT_EQ(NamesOf(target), (std::vector<std::string>{"a", "a", "b"}));
  EXPECT_EQ(target->GetName().name, "src");
  EXPECT_EQ(target->GetValue(), source->GetValue());
  EXPECT_EQ(target->FindChild("a")->GetValue(), Int(0));
  Ref copied = target->GetChildren()[1]->GetChildren()[0];
  EXPECT_EQ(copied->GetParent(), target->GetChildren()[1]);
  EXPECT_NE(copied->GetValue().GetPayload(),
            source->GetChildren()[0]->GetChildren()[0]->GetValue().GetPayload());
}

}  // namespace
}  // namespace quorl
