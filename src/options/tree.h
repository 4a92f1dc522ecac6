// The generic shape shared by the option tree (OptionNode) and the schema tree (OptionGroup): a node
// held by a shared reference, with a weak link to itself (`selfRef`, the shared-from-this base), a weak
// link to its `parent` and an ordered list of `children` that it owns.
//
// Ownership runs strictly downward; parents are never owned by their children, so trees have no
// reference cycle. A node whose parent has died counts as a root. Operations that need `selfRef` raise
// std::bad_weak_ptr on a node that is not held by a shared reference. Nothing here locks: a tree is
// used by one thread at a time, although shared references to its nodes may be copied and dropped on
// any thread (the counts are atomic).
//
// Node is the concrete record (CRTP): it derives publicly from TreeNode<Node>, declares its own fields
// after the links, and has a `name` field of type HashedName for FindChildByHash (befriend
// TreeNode<Node> when that field is private). Walks that differ between trees, such as the path of a
// node, belong to Node.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/name_hash.h"

namespace quorl {

// An ordered list of names, outermost first, one for each level below the root.
using OptionPath = std::vector<HashedName>;

template <class Node>
class TreeNode : public std::enable_shared_from_this<Node> {
 public:
  using Ref = std::shared_ptr<Node>;

  // The parent, or null for a root, a detached node and a node whose parent has died.
  Ref GetParent() const { return parent.lock(); }
  const std::vector<Ref>& GetChildren() const { return children; }

  // The top of the tree that holds this node: the last live ancestor.
  Ref GetRoot() {
    Ref current = this->shared_from_this();
    while (Ref up = current->parent.lock())
      current = std::move(up);
    return current;
  }

  // Attaches `child` as last child, first detaching it from any live parent (this node included, so a
  // child already here moves to the end). Gives the child, or null for a null child and for a child that
  // is listed here while its parent link says otherwise.
  Ref AddChild(Ref child) {
    if (!child) return nullptr;
    if (Ref previous = child->parent.lock()) previous->RemoveChild(child);
    if (std::find(children.begin(), children.end(), child) != children.end()) return nullptr;
    AppendDetached(child);
    return child;
  }

  // Detaches `child` when its live parent is this node; otherwise nothing changes. `child` may be an
  // entry of this node's own list.
  void RemoveChild(const Ref& child) {
    if (!child) return;
    Ref owner = child->parent.lock();
    if (owner.get() != static_cast<Node*>(this)) return;
    // A copy: when `child` is the list's own entry, the erase below refills it with the next child.
    const Ref detached = child;
    auto place = std::find(children.begin(), children.end(), detached);
    if (place != children.end()) children.erase(place);
    detached->parent.reset();
  }

  // Makes room for `count` children in all, so that a reader who knows the number appends without
  // moving the list.
  void ReserveChildren(std::size_t count) { children.reserve(count); }

  // The first child whose name has `hash`, or null. Names are never compared as text.
  Ref FindChildByHash(uint32_t hash) const {
    for (const Ref& child : children) {
      if (child->name.hash == hash) return child;
    }
    return nullptr;
  }

 protected:
  TreeNode() = default;
  ~TreeNode() = default;
  TreeNode(const TreeNode&) = delete;
  TreeNode& operator=(const TreeNode&) = delete;

  // AddChild for a node that was just made and that nobody else has seen: it has no parent and cannot be
  // listed anywhere, so the detaching and the search of AddChild would find nothing.
  void AppendDetached(const Ref& child) {
    // The weak reference alone is enough to link upward; it fails as shared_from_this would.
    std::weak_ptr<Node> self = this->weak_from_this();
    if (self.expired()) throw std::bad_weak_ptr();
    children.push_back(child);
    child->parent = std::move(self);
  }

  std::weak_ptr<Node> parent;
  std::vector<Ref> children;
};

}  // namespace quorl
