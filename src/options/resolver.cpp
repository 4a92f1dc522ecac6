#include "options/resolver.h"

#include <string>

#include "core/strings.h"

namespace quorl {

void OptionGroup::ApplyDefaults(const NodeRef& node) {
  for (const DescriptorRef& option : options) {
    // Availability is asked only for absent options.
    if (!node->HasChild(option->GetName()) && option->IsAvailable(node)) {
      node->SetChild(option->GetName(), option->GetDefaultValue());
    }
  }
  for (const Ref& group : children) {
    if (!group->IsAvailable(node)) continue;
    NodeRef child = node->FindChild(group->name);
    if (!child) child = node->GetOrCreateChild(group->name);
    group->ApplyDefaults(child);
  }
}

namespace {

void LogUnavailable(const std::string& path) {
  Logger::Log(kOptionProblemSeverity,
              FormatString("Option %s not available in this configuration", path.c_str()));
}

// Replaces the node's value by the declared type's reading of its text, unless it is of that type
// already. Never fails: a text that does not parse gives the type's zero.
void Coerce(const OptionValue& declared, OptionNode& node) {
  const ValueTypeTable* type = declared.GetTable();
  if (type == node.GetValue().GetTable()) return;
  // An option without a default has no type to go to; such an option is not to be set by a document.
  if (type == nullptr) return;
  OptionValue coerced;
  coerced.SetFromText(type, node.GetValue().ToText());
  node.SetValue(coerced);
}

}  // namespace

bool OptionGroup::Validate(const NodeRef& node) {
  bool result = true;
  // This group's part of the path text, made at the first child (so that a group without shared
  // ownership throws there and only there) and the same for all the others.
  std::string groupPath;
  bool haveGroupPath = false;
  // By index, and holding the child: validation itself never adds or removes children, but the logger's
  // callback runs in between and may change the configuration. The child visited is then still finished
  // (it stays alive through this reference, not through the list), and the walk goes on over the list
  // as the callback left it.
  for (std::size_t i = 0; i < node->GetChildren().size(); ++i) {
    const NodeRef child = node->GetChildren()[i];
    const DescriptorRef option = FindOption(child->GetName());
    const Ref group = FindGroup(child->GetName());
    if (!haveGroupPath) {
      groupPath = GetPathString();
      haveGroupPath = true;
    }
    // Built for every node before any test; the root's empty path leaves a leading dot, as intended.
    std::string path = groupPath;
    path += '.';
    path += child->GetName().name.c_str();

    if (!option && !group) {
      Logger::Log(kOptionProblemSeverity, FormatString("Option not found '%s'", path.c_str()));
      result = false;
      continue;
    }
    if (option && !option->IsAvailable(node)) {
      LogUnavailable(path);
      result = false;
      continue;
    }
    if (group) {
      if (!group->IsAvailable(node)) {
        LogUnavailable(path);
        result = false;
        continue;
      }
      const bool below = group->Validate(child);
      result = result && below;
    }
    if (option) Coerce(option->GetDefaultValue(), *child);
  }
  return result;
}

}  // namespace quorl
