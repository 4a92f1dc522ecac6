#include "options/node.h"

#include <algorithm>
#include <cstdlib>

#include "core/strings.h"

namespace quorl {

bool OptionNode::GetChildValue(const HashedName& key, OptionValue& out) const {
  Ref child = FindChildByHash(key.hash);
  if (!child) return false;
  out = child->value;
  return true;
}

bool OptionNode::Equals(const Ref& other) const {
  if (!other) return false;
  const OptionNode& b = *other;
  if (!value.IsEmpty()) {
    if (b.value.IsEmpty() || value.TypeId() != b.value.TypeId()) return false;
    if (value.GetTable()->compare(value.GetPayload(), b.value.GetPayload()) != 0) return false;
  } else if (!b.value.IsEmpty()) {
    return false;
  }
  if (children.size() != b.children.size()) return false;
  if (IsArray()) {
    for (std::size_t i = 0; i < children.size(); ++i) {
      if (!children[i]->Equals(b.children[i])) return false;
    }
    return true;
  }
  for (const Ref& child : children) {
    if (!child->Equals(b.FindChildByHash(child->name.hash))) return false;
  }
  return true;
}

void OptionNode::CopyFrom(const Ref& other) {
  CopyChildrenFrom(other);
  name = other->name;
  value = other->value;
}

void OptionNode::CopyChildrenFrom(const Ref& other) {
  // By index: the list of `other` is not changed by the copy, but stays valid even if it were.
  for (std::size_t i = 0; i < other->children.size(); ++i) {
    const OptionNode& source = *other->children[i];
    Ref copy = std::make_shared<OptionNode>();
    copy->CopyChildrenFrom(other->children[i]);
    copy->name = source.name;
    copy->value = source.value;
    AppendDetached(copy);
  }
}

OptionNode::Ref OptionNode::GetOrCreateChild(const HashedName& key) {
  if (Ref child = FindChildByHash(key.hash)) return child;
  Ref child = std::make_shared<OptionNode>(key);
  AppendDetached(child);
  return child;
}

void OptionNode::SetChild(const HashedName& key, const OptionValue& newValue) {
  if (Ref child = FindChildByHash(key.hash)) {
    child->value = newValue;
    return;
  }
  AppendDetached(std::make_shared<OptionNode>(key, newValue));
}

void OptionNode::AddValue(const OptionValue& newValue) {
  AppendDetached(std::make_shared<OptionNode>(HashedName(), newValue));
}

void OptionNode::GetPath(OptionPath& out) {
  Ref current = shared_from_this();
  while (Ref up = current->parent.lock()) {
    if (!current->name.name.empty()) {
      out.push_back(current->name);
    } else {
      const auto& siblings = up->children;
      const auto place = std::find(siblings.begin(), siblings.end(), current);
      // A node that its parent does not list gets the position of all ones.
      const unsigned long long position =
          place == siblings.end() ? ~0ull : static_cast<unsigned long long>(place - siblings.begin());
      out.emplace_back(FormatString("%llu", position));
    }
    current = std::move(up);
  }
  std::reverse(out.begin(), out.end());
}

OptionNode::Ref OptionNode::FindByPath(const OptionPath& path) {
  Ref current = GetRoot();
  for (const HashedName& element : path) {
    if (current->IsObject()) {
      current = current->FindChildByHash(element.hash);
    } else if (current->IsArray()) {
      // Intended: the number is matched against the elements' hashes (all 0), not used as a position.
      const auto number = static_cast<int32_t>(std::strtol(element.name.c_str(), nullptr, 10));
      current = current->FindChildByHash(static_cast<uint32_t>(number));
    } else {
      return nullptr;
    }
    if (!current) return nullptr;
  }
  return current;
}

OptionNode::Ref OptionNode::GetOrCreateByPath(const OptionPath& path) {
  Ref current = GetRoot();
  for (const HashedName& element : path) {
    Ref next = current->FindChildByHash(element.hash);
    current = next ? std::move(next) : current->GetOrCreateChild(element);
  }
  return current;
}

}  // namespace quorl
