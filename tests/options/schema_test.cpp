#include "options/schema.h"

#include <gtest/gtest.h>

#include "options/options_test_support.h"

namespace quorl::testing {
namespace {

TEST(OptionSchema, PathsLeaveOutTheRootAndJoinWithDots) {
  GroupRef root = std::make_shared<OptionGroup>();
  GroupRef c = root->AddGroup("a")->AddGroup("b")->AddGroup("c");
  EXPECT_EQ(c->GetPathString(), "a.b.c");
  OptionPath path;
  Declare(c, "x", Int(1))->GetPath(path);
  EXPECT_EQ(path, (OptionPath{"a", "b", "c", "x"}));
  path.clear();
  GroupRef gone = root->AddGroup("gone");
  OptionDescriptor orphan(gone, "orphan", 0, Int(1), "");
  root.reset();
  gone.reset();
  orphan.GetPath(path);
  EXPECT_TRUE(path.empty());  // its parent has died: no path, no error
}

TEST(OptionSchema, LookUpsFindTheFirstListedOptionAndPassOverEveryNamesakeOfTheLast) {
  GroupRef root = std::make_shared<OptionGroup>();
  GroupRef ab = root->AddGroup("a")->AddGroup("b");
  DescriptorRef inB = Declare(root->AddGroup("b"), "a", Int(1));
  Declare(ab, "a", Int(2));
  EXPECT_EQ(ab->FindOptionByPath({"a", "b", "a"}), inB);
  EXPECT_EQ(root->FindOptionByPath({}), nullptr);
  EXPECT_EQ(root->FindOptionByPath({"b", "missing"}), nullptr);
  // The group look-up has no such rule; both start from the root wherever they are asked.
  EXPECT_EQ(ab->FindGroupByPath({"a", "b"}), ab);
  EXPECT_EQ(ab->FindGroupByPath({}), root);
  auto first = std::make_shared<OptionDescriptor>(root, "d", 1, Int(1), "");
  EXPECT_EQ(root->FindOption("d"), nullptr);  // the parent link alone does not list it
  root->AddOption(first);
  root->AddOption(std::make_shared<OptionDescriptor>(root, "d", 2, Int(2), ""));
  EXPECT_EQ(root->GetOptions().size(), 2u);
  EXPECT_EQ(root->FindOption("d"), first);
}

}  // namespace
}  // namespace quorl::testing
