#include "options/node.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <type_traits>

#include "options/options_test_support.h"

namespace quorl::testing {
namespace {

TEST(OptionNode, LookUpsCompareHashesAndTheEarlierChildWins) {
  NodeRef root = Node();
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
  NodeRef left = Read(R"({"a":1,"b":2})");
  NodeRef right = Node();
  NodeRef a = left->FindChild("a");
  EXPECT_EQ(left->AddChild(a), a);
  EXPECT_EQ(Write(left), R"({"b":2,"a":1})");
  EXPECT_EQ(right->AddChild(a), a);
  EXPECT_EQ(Write(left), R"({"b":2})");
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
// the next child). A detached node, and a node whose parent has died, is the root of what is left.
TEST(OptionNode, RemoveChildAcceptsTheParentsOwnEntryAndLeavesTheNodeARoot) {
  NodeRef root = Node();
  std::weak_ptr<OptionNode> first = root->GetOrCreateChild("a");
  NodeRef second = root->GetOrCreateChild("b");
  NodeRef inner = second->GetOrCreateChild("inner");
  root->RemoveChild(root->GetChildren().front());
  EXPECT_TRUE(first.expired());
  EXPECT_EQ(root->GetChildren(), std::vector<NodeRef>{second});
  EXPECT_EQ(second->GetParent(), root);
  root->RemoveChild(root->GetChildren().back());
  EXPECT_TRUE(root->GetChildren().empty());
  EXPECT_EQ(second->GetParent(), nullptr);
  OptionPath path;
  inner->GetPath(path);
  EXPECT_EQ(path.size(), 1u);
  EXPECT_EQ(inner->GetRoot(), second);
  second.reset();
  EXPECT_EQ(inner->GetRoot(), inner);
}

// True when OptionNode could list a caller's node without AddChild's detaching, leaving it under two parents.
template <class N, class = void>
struct AttachesWithoutDetaching : std::false_type {};
template <class N>
struct AttachesWithoutDetaching<
    N, std::void_t<decltype(std::declval<N&>().AddNewChild(std::declval<const std::shared_ptr<N>&>()))>>
    : std::true_type {};

TEST(OptionNode, OnlyAddChildTakesACallersNodeSoEachNodeHasOneParent) {
  EXPECT_FALSE(AttachesWithoutDetaching<OptionNode>::value);
  // The reader's fast path makes its own nodes, appending beside an earlier child of the same hash.
  NodeRef root = Node();
  root->SetChild("key", Int(1));
  NodeRef made = root->AddNewChild("key");
  EXPECT_EQ(root->GetChildren(), (std::vector<NodeRef>{root->FindChild("key"), made}));
  EXPECT_EQ(made->GetParent(), root);
  EXPECT_TRUE(made->GetValue().IsEmpty());
  OptionNode loose;
  EXPECT_THROW(loose.AddNewChild("x"), std::bad_weak_ptr);
}

TEST(OptionNode, PathsNameUnnamedNodesByPositionButFindThemByHash) {
  NodeRef root = Read(R"({"list":[0,1,2]})");
  NodeRef list = root->FindChild("list");
  NodeRef inner = list->GetChildren()[2]->GetOrCreateChild("inner");
  OptionPath path;
  inner->GetPath(path);
  EXPECT_EQ(path, (OptionPath{"list", "2", "inner"}));  // hashes compared: that of the text "2"

  EXPECT_EQ(inner->FindByPath({}), root);
  EXPECT_EQ(inner->FindByPath({"list"}), list);  // walked from the root
  EXPECT_EQ(root->FindByPath(path), nullptr);    // "2" is compared with hashes, all 0
  EXPECT_EQ(root->FindByPath({"list", HashedName("abc", 5)}), list->GetChildren()[0]);
  EXPECT_EQ(root->FindByPath({"list", "1"}), nullptr);
  list->AddChild(std::make_shared<OptionNode>(HashedName("", 7), Int(7)));
  EXPECT_EQ(root->FindByPath({"list", "7"}), list->GetChildren()[3]);
  EXPECT_EQ(root->FindByPath({"list", "0", "x"}), nullptr);  // through a leaf

  NodeRef made = inner->GetOrCreateByPath({"list", "2", "x"});
  EXPECT_EQ(made->GetParent()->GetParent(), list);  // a named child "2" beside the elements
  EXPECT_EQ(root->GetOrCreateByPath({"list", "2", "x"}), made);
}

TEST(OptionNode, EqualsComparesValuesAndChildrenIgnoringOrderInObjectsOnly) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {R"({"x":1,"y":[2,3]})", R"({"y":[2,3],"x":1})", true},
      {R"({"x":1,"y":2})", R"({"x":1,"y":3})", false},
      {R"({"x":1})", R"({"x":1,"y":2})", false},
      {"[1,2]", "[2,1]", false},
      {R"({"x":1})", R"({"x":1.0})", false},
      {R"({"x":null})", R"({"x":1})", false},
  };
  for (const auto& [a, b, equal] : cases) {
    EXPECT_EQ(Read(a)->Equals(Read(b)), equal) << a << " against " << b;
    EXPECT_EQ(Read(b)->Equals(Read(a)), equal) << b << " against " << a;
  }
  NodeRef leaf = Node();
  leaf->SetValue(OptionValue::Of<DoubleType>(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(leaf->Equals(leaf));
  EXPECT_FALSE(leaf->Equals(nullptr));
}

}  // namespace
}  // namespace quorl::testing
