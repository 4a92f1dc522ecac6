// Tree checks shared by the fuzz programs of the options layer. Header-only; each program is one
// thread, and the functions only read the tree they are given.
#pragma once

#include <cstddef>
#include <memory>

#include "options/node.h"

namespace quorl::fuzz {

// Two identical trees are Equals only while no object-shaped node has two children of one hash: each
// child then meets the first child of its hash on the other side. Programs skip the Equals check for
// such trees.
inline bool HasDuplicateHashesInObjects(const OptionNode& node) {
  const auto& children = node.GetChildren();
  if (node.IsObject()) {
    for (std::size_t i = 0; i < children.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        if (children[i]->GetName().hash == children[j]->GetName().hash) return true;
      }
    }
  }
  for (const std::shared_ptr<OptionNode>& child : children) {
    if (HasDuplicateHashesInObjects(*child)) return true;
  }
  return false;
}

}  // namespace quorl::fuzz
