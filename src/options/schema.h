// The option schema: a tree of OptionGroup records, declared once by code, that says which options may
// exist (OptionDescriptor), of which type, with which default, under which condition, and how they are
// grouped. A schema never holds current values; those live in an OptionNode tree (options/node.h), which
// the resolver brings to the schema (ApplyDefaults, Validate, defined in options/resolver.cpp) and against
// which availability is decided (IsAvailable, defined in options/condition.cpp).
//
// Ownership: a group owns its child groups and its descriptors by shared reference; both point back only
// weakly, so a schema has no reference cycle. A descriptor owns deep copies of its values. Conditions are
// shared and name the option they read by path, never by reference. A root is a default-built group held
// by a shared reference; walks upward and AddChild on a group that is not so held raise
// std::bad_weak_ptr. All look-ups compare 32-bit name hashes only, in list order, and report absence by
// an empty result.
//
// Threads: nothing here locks. Once declared, a schema is only read, so it may be read from several
// threads at once; building it and reading it concurrently is the caller's to order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/name_hash.h"
#include "options/node.h"
#include "options/tree.h"
#include "options/value.h"

namespace quorl {

class OptionCondition;
class OptionGroup;

// A pair of bounds, stored and handed out as a unit; nothing in the library enforces it.
struct OptionRange {
  OptionValue lowerBound;
  OptionValue upperBound;
};

// One declared option. The declared type is the table of `defaultValue`. Every field is plain data apart
// from `defaultValue` (written by ApplyDefaults, and the target type of Validate) and `condition`.
class OptionDescriptor {
 public:
  using GroupRef = std::shared_ptr<OptionGroup>;
  using ConditionRef = std::shared_ptr<OptionCondition>;

  // No parent, an empty name of hash 0, tag -1, empty values and lists, no condition.
  OptionDescriptor() = default;

  // The five declaring forms. None adds the descriptor to `parent`: follow with parent->AddOption.
  // Values are deep-copied, the condition is shared.
  OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                   const OptionValue& defaultValue, const std::string& description,
                   ConditionRef condition = nullptr);
  OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                   const OptionValue& defaultValue, const OptionValue& auxValue,
                   const std::string& description, ConditionRef condition = nullptr);
  OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                   const OptionValue& defaultValue, const OptionValue& lowerBound,
                   const OptionValue& upperBound, const std::string& description,
                   ConditionRef condition = nullptr);
  OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                   const OptionValue& defaultValue, const OptionValue& lowerBound,
                   const OptionValue& upperBound, const OptionValue& auxValue, const std::string& description,
                   ConditionRef condition = nullptr);
  OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                   const OptionValue& defaultValue, const std::vector<OptionValue>& choices,
                   const std::string& description, ConditionRef condition = nullptr);

  const HashedName& GetName() const { return name; }
  int32_t GetTag() const { return tag; }
  const OptionValue& GetDefaultValue() const { return defaultValue; }
  const std::string& GetDescription() const { return description; }
  const std::vector<OptionValue>& GetChoices() const { return choices; }
  const OptionRange& GetRange() const { return range; }
  const OptionValue& GetAuxValue() const { return auxValue; }
  const ConditionRef& GetCondition() const { return condition; }
  // The group it was declared for, or null when that is unset or has died.
  GroupRef GetParent() const { return parent.lock(); }

  // Appends the names from below the root down to this option to `out` (pass an empty list). With no
  // live parent `out` is left alone.
  void GetPath(OptionPath& out) const;

  // True when every group above allows it, outermost first, and then its own condition holds for the
  // configuration that `tree` (any node of it, or null for defaults only) belongs to. Never cached.
  bool IsAvailable(const std::shared_ptr<OptionNode>& tree) const;
  // How many condition nodes stand behind this option's condition, references to other options
  // followed; 0 without a condition.
  uint64_t ConditionWeight() const;

 private:
  std::weak_ptr<OptionGroup> parent;
  HashedName name;
  int32_t tag = -1;
  OptionValue defaultValue;
  std::string description;
  std::vector<OptionValue> choices;
  OptionRange range;
  OptionValue auxValue;
  ConditionRef condition;
};

// One node of the schema tree, on the tree shape that OptionNode uses too. A group and everything below
// it is available only while its condition (and those of the groups above) hold.
class OptionGroup : public TreeNode<OptionGroup> {
  friend class TreeNode<OptionGroup>;

 public:
  using DescriptorRef = std::shared_ptr<OptionDescriptor>;
  using ConditionRef = std::shared_ptr<OptionCondition>;
  using NodeRef = std::shared_ptr<OptionNode>;

  OptionGroup() = default;
  OptionGroup(const HashedName& name, ConditionRef condition) : name(name), condition(std::move(condition)) {}

  HashedName GetName() const { return name; }
  const std::vector<DescriptorRef>& GetOptions() const { return options; }
  const ConditionRef& GetCondition() const { return condition; }

  // Appends `option` with no test for duplicates (FindOption sees the first) and no change to its parent
  // link; gives it back.
  DescriptorRef AddOption(DescriptorRef option);
  // Makes a group of that name and condition and attaches it here; gives what AddChild gives.
  Ref AddGroup(const HashedName& name, ConditionRef condition = nullptr);
  // AddChild and GetRoot are those of the tree shape: AddChild detaches the group from a live parent
  // first (so re-attaching moves it to the end) and raises std::bad_weak_ptr without shared ownership.
  using TreeNode::AddChild;
  using TreeNode::GetRoot;

  Ref FindGroup(const HashedName& key) const { return FindChildByHash(key.hash); }
  DescriptorRef FindOption(const HashedName& key) const;

  // From the root, whatever group it is called on; an empty path gives the root.
  Ref FindGroupByPath(const OptionPath& path);
  // From the root. Every element that bears the last element's hash is passed over without a step, not
  // just the last one (a, b, a walks into b and looks for option a there). Empty path, or a group missing
  // on the way: null.
  DescriptorRef FindOptionByPath(const OptionPath& path);

  // Appends the names from below the root down to this group to `out` (pass an empty list: it is
  // reversed as a whole). The root's own name never appears.
  void GetPath(OptionPath& out);
  // The path's names joined by "."; the empty text for the root.
  std::string GetPathString();

  // As OptionDescriptor::IsAvailable, for the group.
  bool IsAvailable(const NodeRef& tree) const;

  // Completes the configuration `node`, which stands for this group: every available option it lacks
  // gets a node holding the default, every available group a node. Existing nodes are never touched.
  void ApplyDefaults(const NodeRef& node);
  // Checks every node below `node` against this group, logs each problem at severity 3 and goes on, and
  // coerces each option's value to the declared type through text. True when nothing was logged.
  bool Validate(const NodeRef& node);

 private:
  HashedName name;
  std::vector<DescriptorRef> options;
  ConditionRef condition;
};

}  // namespace quorl
