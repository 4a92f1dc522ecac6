// OptionNode: one node of a tree of named, typed options, which doubles as a JSON-shaped document.
//
// A node has a name with its hash, a weak parent link, ordered children that it owns and at most one
// OptionValue. Its shape is derived from the first child each time it is asked: named first child,
// object; unnamed first child, array; no children, leaf. Look-ups compare name hashes only, never
// texts; with duplicate hashes the earlier child wins. Paths (OptionPath) start below the root and are
// always walked from the root, wherever the node stands.
//
// Nodes live on the heap behind shared references (make them with std::make_shared); operations that
// reach the node's own reference raise std::bad_weak_ptr otherwise. Nothing here locks, and a tree is
// not safe for concurrent change: whoever shares one between threads guards it as a whole.
#pragma once

#include <memory>

#include "core/name_hash.h"
#include "options/tree.h"
#include "options/value.h"

namespace quorl {

class OptionNode : public TreeNode<OptionNode> {
  friend class TreeNode<OptionNode>;

 public:
  OptionNode() = default;
  explicit OptionNode(const HashedName& name) : name(name) {}
  explicit OptionNode(HashedName&& name) : name(std::move(name)) {}
  OptionNode(const HashedName& name, const OptionValue& value) : name(name), value(value) {}

  const HashedName& GetName() const { return name; }
  const OptionValue& GetValue() const { return value; }
  // The value for in-place changes, such as SetTyped; the node stays its owner.
  OptionValue& MutableValue() { return value; }

  bool HasName() const { return !name.name.empty(); }
  bool IsNamedValue() const { return HasName() && !value.IsEmpty(); }
  bool IsArrayValue() const { return !HasName() && !value.IsEmpty(); }
  bool IsObject() const { return !children.empty() && !children.front()->name.name.empty(); }
  bool IsArray() const { return !children.empty() && children.front()->name.name.empty(); }

  bool HasChild(const HashedName& key) const { return FindChildByHash(key.hash) != nullptr; }
  Ref FindChild(const HashedName& key) const { return FindChildByHash(key.hash); }
  // False when no child has the hash, leaving `out` alone; otherwise `out` receives a copy of the
  // child's value (which may be empty).
  bool GetChildValue(const HashedName& key, OptionValue& out) const;

  // Values equal by type id and compare, children equal as well: an object's by hash in any order, an
  // array's by position. This node's shape picks the branch; the nodes' own names are not compared.
  bool Equals(const Ref& other) const;

  // Releases the current value and stores a copy of `newValue` (nothing, for an empty one).
  void SetValue(const OptionValue& newValue) { value = newValue; }
  // CopyChildrenFrom, then the other node's name, then its value. Old children stay.
  void CopyFrom(const Ref& other);
  // Appends a deep copy of each of the other node's children; nothing is merged.
  void CopyChildrenFrom(const Ref& other);

  // The first child with the hash, or a new child of that name, without a value.
  Ref GetOrCreateChild(const HashedName& key);
  // Replaces the value of the first child with the hash, or attaches a new child holding a copy.
  void SetChild(const HashedName& key, const OptionValue& newValue);
  // Attaches a new unnamed child holding a copy of the value; this is how an array grows.
  void AddValue(const OptionValue& newValue);
  using TreeNode::RemoveChild;
  // Detaches the first child with the hash, if any.
  void RemoveChild(const HashedName& key) { RemoveChild(FindChildByHash(key.hash)); }

  // Appends the path from the root down to this node to `out` (pass an empty list). Unnamed nodes
  // appear as the decimal text of their position among their parent's children.
  void GetPath(OptionPath& out);
  // The node at `path` from the root, or null. On an array, an element's number is compared with the
  // children's hashes, not used as a position: "0" and any text without a number reach the first child.
  Ref FindByPath(const OptionPath& path);
  // The node at `path` from the root, with missing nodes made by name along the way.
  Ref GetOrCreateByPath(const OptionPath& path);

  // Makes a child of that name, without a value, and attaches it as last child even when another child
  // has the hash (unlike GetOrCreateChild): the JSON reader's way of appending members and elements in
  // document order. It takes no node from the caller, so it can never list a node that has a parent.
  Ref AddNewChild(HashedName childName) {
    Ref child = std::make_shared<OptionNode>(std::move(childName));
    AppendDetached(child);
    return child;
  }

 private:
  // Declared in this order so that destruction releases the value, then the name, then the children.
  HashedName name;
  OptionValue value;
};

}  // namespace quorl
