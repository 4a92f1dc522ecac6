#include "options/node.h"

#include <gtest/gtest.h>

#include <limits>

namespace quorl {
namespace {

using Ref = std::shared_ptr<OptionNode>;

Ref MakeNode(const char* name = nullptr) {
  return name ? std::make_shared<OptionNode>(HashedName(name)) : std::make_shared<OptionNode>();
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

TEST(OptionNodeShape, OnlyTheFirstChildDecides) {
  Ref node = MakeNode();
  node->SetValue(Int(1));
  EXPECT_FALSE(node->IsObject());
  EXPECT_FALSE(node->IsArray());
  node->AddValue(Int(2));
  node->SetChild("named", Int(3));
  EXPECT_TRUE(node->IsArray());
  EXPECT_FALSE(node->IsObject());
  EXPECT_TRUE(node->GetChildren()[0]->IsArrayValue());
  EXPECT_TRUE(node->GetChildren()[1]->IsNamedValue());
  node->RemoveChild(node->GetChildren()[0]);
  EXPECT_TRUE(node->IsObject());
}

TEST(OptionNodeChildren, LookUpsUseTheHashAndTheEarlierChildWins) {
  Ref root = MakeNode();
  root->AddChild(std::make_shared<OptionNode>(HashedName("first", 77), Int(1)));
  root->AddChild(std::make_shared<OptionNode>(HashedName("second", 77), Int(2)));
  EXPECT_EQ(root->FindChild(HashedName("other text", 77))->GetName().name, "first");
  EXPECT_TRUE(root->HasChild(HashedName("", 77)));
  EXPECT_FALSE(root->HasChild("first"));  // the real hash of "first" is not 77

  root->SetChild(HashedName("x", 77), Int(9));  // replaces the first one's value, makes no node
  ASSERT_EQ(root->GetChildren().size(), 2u);
  OptionValue out = Int(-5);
  EXPECT_TRUE(root->GetChildValue(HashedName("", 77), out));
  EXPECT_EQ(*out.Get<Int32Type>(), 9);
  EXPECT_FALSE(root->GetChildValue("missing", out));
  EXPECT_EQ(*out.Get<Int32Type>(), 9);

  root->RemoveChild(HashedName("", 77));
  EXPECT_EQ(NamesOf(root), std::vector<std::string>{"second"});
}

TEST(OptionNodeChildren, GetOrCreateMakesOneChildButAddValueAlwaysAppends) {
  Ref root = MakeNode();
  Ref a = root->GetOrCreateChild("a");
  EXPECT_EQ(root->GetOrCreateChild("a"), a);
  EXPECT_TRUE(a->GetValue().IsEmpty());
  root->AddValue(Int(1));
  root->AddValue(Int(1));
  ASSERT_EQ(root->GetChildren().size(), 3u);
  EXPECT_EQ(root->GetChildren()[1]->GetName().hash, 0u);
  EXPECT_EQ(root->GetChildren()[2]->GetName().hash, 0u);
  EXPECT_NE(root->GetChildren()[1], root->GetChildren()[2]);
}

TEST(OptionNodeChildren, AddChildMovesNodesBetweenAndWithinParents) {
  Ref left = MakeNode();
  Ref right = MakeNode();
  Ref a = left->GetOrCreateChild("a");
  left->GetOrCreateChild("b");
  EXPECT_EQ(left->AddChild(a), a);  // re-attached to its own parent: moves to the end
  EXPECT_EQ(NamesOf(left), (std::vector<std::string>{"b", "a"}));

  EXPECT_EQ(right->AddChild(a), a);
  EXPECT_EQ(NamesOf(left), std::vector<std::string>{"b"});
  EXPECT_EQ(a->GetParent(), right);
  EXPECT_EQ(right->AddChild(nullptr), nullptr);

  Ref stranger = left->GetChildren()[0];
  right->RemoveChild(stranger);  // not right's child: nothing happens
  EXPECT_EQ(stranger->GetParent(), left);
  EXPECT_EQ(left->GetChildren().size(), 1u);
}

TEST(OptionNodeChildren, OperationsThatAttachNeedASharedReference) {
  OptionNode loose;
  EXPECT_THROW(loose.AddValue(Int(1)), std::bad_weak_ptr);
  EXPECT_THROW(loose.GetOrCreateChild("a"), std::bad_weak_ptr);
  EXPECT_THROW(loose.GetRoot(), std::bad_weak_ptr);
  EXPECT_TRUE(loose.GetChildren().empty());

  // The detaching step has already happened when the attach fails.
  Ref owner = MakeNode();
  Ref child = owner->GetOrCreateChild("c");
  EXPECT_THROW(loose.AddChild(child), std::bad_weak_ptr);
  EXPECT_TRUE(owner->GetChildren().empty());
  EXPECT_EQ(child->GetParent(), nullptr);
}

TEST(OptionNodePaths, DetachedAndOrphanedNodesAreTheirOwnRoots) {
  Ref root = MakeNode();
  Ref mid = root->GetOrCreateChild("mid");
  Ref leaf = mid->GetOrCreateChild("leaf");
  EXPECT_EQ(leaf->GetRoot(), root);
  mid->RemoveChild(leaf);
  EXPECT_EQ(leaf->GetRoot(), leaf);
  OptionPath path;
  leaf->GetPath(path);
  EXPECT_TRUE(path.empty());

  Ref kept = mid->GetOrCreateChild("kept");
  mid.reset();
  root.reset();  // the whole tree above `kept` dies
  EXPECT_EQ(kept->GetRoot(), kept);
  EXPECT_EQ(kept->GetParent(), nullptr);
}

TEST(OptionNodePaths, UnnamedNodesAppearByPosition) {
  Ref root = MakeNode();
  root->AddValue(Int(0));
  root->AddValue(Int(1));
  root->AddValue(Int(2));
  Ref third = root->GetChildren()[2];
  Ref inner = third->GetOrCreateChild("inner");
  OptionPath path;
  inner->GetPath(path);
  ASSERT_EQ(path.size(), 2u);
  EXPECT_EQ(path[0].name, "2");
  EXPECT_EQ(path[0].hash, NameHash("2"));
  EXPECT_EQ(path[1].name, "inner");
}

TEST(OptionNodePaths, FindByPathStartsAtTheRootAndMatchesArrayNumbersAsHashes) {
  Ref root = MakeNode();
  Ref list = root->GetOrCreateChild("list");
  list->AddValue(Int(10));
  list->AddValue(Int(20));
  Ref deep = list->GetChildren()[1]->GetOrCreateChild("deep");

  EXPECT_EQ(deep->FindByPath({}), root);
  EXPECT_EQ(deep->FindByPath({"list"}), list);  // not looked up below `deep`
  EXPECT_EQ(root->FindByPath({"list", "0"}), list->GetChildren()[0]);
  EXPECT_EQ(root->FindByPath({"list", "abc"}), list->GetChildren()[0]);
  EXPECT_EQ(root->FindByPath({"list", "1"}), nullptr);
  // The element's own hash is not looked at, only its text.
  EXPECT_EQ(root->FindByPath({"list", HashedName("0", 12345)}), list->GetChildren()[0]);
  // A number equal to a child's hash does reach it.
  list->AddChild(std::make_shared<OptionNode>(HashedName("", 7), Int(7)));
  EXPECT_EQ(*root->FindByPath({"list", "7"})->GetValue().Get<Int32Type>(), 7);
  EXPECT_EQ(root->FindByPath({"list", "0", "deep"}), nullptr);  // the first element is a leaf
  EXPECT_EQ(root->FindByPath({"missing", "x"}), nullptr);

  Ref made = deep->GetOrCreateByPath({"list", "1", "x"});
  EXPECT_EQ(made->GetParent()->GetName().name, "1");  // a named child beside the elements
  EXPECT_EQ(made->GetParent()->GetParent(), list);
  EXPECT_EQ(root->GetOrCreateByPath({"list", "1", "x"}), made);
}

TEST(OptionNodeEquality, ObjectsIgnoreOrderArraysDoNot) {
  Ref a = MakeNode("a");
  Ref b = MakeNode("b");  // the nodes' own names are not compared
  a->SetChild("x", Int(1));
  a->SetChild("y", Int(2));
  b->SetChild("y", Int(2));
  b->SetChild("x", Int(1));
  EXPECT_TRUE(a->Equals(b));
  b->SetChild("x", Int(3));
  EXPECT_FALSE(a->Equals(b));
  EXPECT_FALSE(a->Equals(nullptr));

  Ref p = MakeNode();
  Ref q = MakeNode();
  p->AddValue(Int(1));
  p->AddValue(Int(2));
  q->AddValue(Int(2));
  q->AddValue(Int(1));
  EXPECT_FALSE(p->Equals(q));
  q->AddValue(Int(3));
  EXPECT_FALSE(p->Equals(q));
}

TEST(OptionNodeEquality, ValuesCompareByTypeAndTable) {
  Ref nan = MakeNode();
  nan->SetValue(OptionValue::Of<DoubleType>(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(nan->Equals(nan));
  Ref one = MakeNode();
  one->SetValue(Int(1));
  Ref oneFloat = MakeNode();
  oneFloat->SetValue(OptionValue::Of<FloatType>(1.0f));
  EXPECT_FALSE(one->Equals(oneFloat));
  EXPECT_FALSE(one->Equals(MakeNode()));
  EXPECT_FALSE(MakeNode()->Equals(one));
  EXPECT_TRUE(MakeNode()->Equals(MakeNode()));
}

TEST(OptionNodeCopy, CopiesAreDeepAndAppendToWhatIsThere) {
  Ref source = MakeNode("src");
  source->SetValue(OptionValue::Of<StringType>("text"));
  source->GetOrCreateChild("a")->AddValue(Int(1));
  source->SetChild("b", Int(2));
  Ref target = MakeNode("dst");
  target->SetChild("a", Int(0));
  target->CopyFrom(source);
  EXPECT_EQ(NamesOf(target), (std::vector<std::string>{"a", "a", "b"}));
  EXPECT_EQ(target->GetName().name, "src");
  EXPECT_EQ(*target->GetValue().Get<StringType>(), "text");
  EXPECT_EQ(target->FindChild("a")->GetValue(), Int(0));  // the older child is still found first

  Ref copiedA = target->GetChildren()[1];
  EXPECT_EQ(copiedA->GetParent(), target);
  EXPECT_EQ(copiedA->GetChildren()[0]->GetParent(), copiedA);
  EXPECT_NE(copiedA->GetChildren()[0], source->GetChildren()[0]->GetChildren()[0]);
  EXPECT_NE(copiedA->GetChildren()[0]->GetValue().GetPayload(),
            source->GetChildren()[0]->GetChildren()[0]->GetValue().GetPayload());
}

TEST(OptionNodeDepth, AThousandLevelsCopyCompareAndDie) {
  Ref root = MakeNode();
  Ref node = root;
  for (int i = 0; i < 1000; ++i) {
    node = node->GetOrCreateChild(HashedName("level" + std::to_string(i)));
    node->SetValue(Int(i));
  }
  OptionPath path;
  node->GetPath(path);
  ASSERT_EQ(path.size(), 1000u);
  EXPECT_EQ(path.back().name, "level999");
  EXPECT_EQ(root->FindByPath(path), node);

  Ref copy = MakeNode();
  copy->CopyFrom(root);
  EXPECT_TRUE(copy->Equals(root));
  node->SetValue(Int(-1));
  EXPECT_FALSE(copy->Equals(root));
  node.reset();
  root.reset();
  copy.reset();
}

}  // namespace
}  // namespace quorl
