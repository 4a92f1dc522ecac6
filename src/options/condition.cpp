#include "options/condition.h"

#include <utility>

#include "core/strings.h"

namespace quorl {

CompareCondition::CompareCondition(const OptionDescriptor& option, const OptionValue& constant,
                                   Predicate predicate)
    : constant(constant), predicate(std::move(predicate)) {
  option.GetPath(path);
}

bool CompareCondition::Evaluate(const GroupRef& context, const NodeRef& tree) const {
  NodeRef node = tree ? tree->FindByPath(path) : nullptr;
  std::shared_ptr<OptionDescriptor> option = context->FindOptionByPath(path);
  if (!option) return false;
  // A node without a value reads as the empty value: the default only stands in for an absent node.
  const OptionValue current = node ? node->GetValue() : option->GetDefaultValue();
  if (!option->IsAvailable(tree)) return false;
  return predicate(current, constant);
}

uint64_t CompareCondition::Weight(const GroupRef& context) const {
  std::shared_ptr<OptionDescriptor> option = context->FindOptionByPath(path);
  if (!option || !option->GetCondition()) return 1;
  return 1 + option->GetCondition()->Weight(option->GetParent());
}

LogicCondition::LogicCondition(std::shared_ptr<OptionCondition> left, std::shared_ptr<OptionCondition> right,
                               Predicate predicate)
    : left(std::move(left)), right(std::move(right)), predicate(std::move(predicate)) {}

bool LogicCondition::Evaluate(const GroupRef& context, const NodeRef& tree) const {
  // Both sides always run, left first.
  const bool l = left ? left->Evaluate(context, tree) : false;
  const bool r = right ? right->Evaluate(context, tree) : false;
  return predicate(l, r);
}

uint64_t LogicCondition::Weight(const GroupRef& context) const {
  uint64_t weight = 1;
  if (left) weight += left->Weight(context);
  if (right) weight += right->Weight(context);
  return weight;
}

bool OptionDescriptor::IsAvailable(const std::shared_ptr<OptionNode>& tree) const {
  GroupRef owner = parent.lock();
  if (owner && !owner->IsAvailable(tree)) return false;
  if (condition) return condition->Evaluate(owner, tree);
  return true;
}

uint64_t OptionDescriptor::ConditionWeight() const {
  return condition ? condition->Weight(parent.lock()) : 0;
}

bool OptionGroup::IsAvailable(const NodeRef& tree) const {
  Ref owner = parent.lock();
  if (owner && !owner->IsAvailable(tree)) return false;
  if (condition) return condition->Evaluate(owner, tree);
  return true;
}

namespace {

bool Greater(const OptionValue& a, const OptionValue& b) {
  return a > b;
}
bool Less(const OptionValue& a, const OptionValue& b) {
  return a < b;
}
bool LessEqual(const OptionValue& a, const OptionValue& b) {
  return a <= b;
}
bool GreaterEqual(const OptionValue& a, const OptionValue& b) {
  return a >= b;
}
bool NotEqual(const OptionValue& a, const OptionValue& b) {
  return a != b;
}
bool Equal(const OptionValue& a, const OptionValue& b) {
  return a == b;
}
bool TextContains(const OptionValue& a, const OptionValue& b) {
  return Contains(a.ToText(), b.ToText().c_str());
}

// Bitwise on purpose: both operands have been evaluated already.
bool And(const bool& l, const bool& r) {
  return l & r;
}
bool Or(const bool& l, const bool& r) {
  return l | r;
}
bool Not(const bool& l, const bool&) {
  return l ^ true;
}

ConditionRef Compare(const DescriptorRef& option, const OptionValue& value,
                     CompareCondition::Predicate predicate) {
  return std::make_shared<CompareCondition>(*option, value, std::move(predicate));
}

}  // namespace

ConditionRef MakeGreater(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, Greater);
}
ConditionRef MakeLess(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, Less);
}
ConditionRef MakeLessEqual(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, LessEqual);
}
ConditionRef MakeGreaterEqual(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, GreaterEqual);
}
ConditionRef MakeNotEqual(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, NotEqual);
}
ConditionRef MakeEqual(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, Equal);
}
ConditionRef MakeContains(const DescriptorRef& option, const OptionValue& value) {
  return Compare(option, value, TextContains);
}

ConditionRef MakeAnd(ConditionRef left, ConditionRef right) {
  return std::make_shared<LogicCondition>(std::move(left), std::move(right), And);
}
ConditionRef MakeOr(ConditionRef left, ConditionRef right) {
  return std::make_shared<LogicCondition>(std::move(left), std::move(right), Or);
}
ConditionRef MakeNot(ConditionRef operand) {
  return std::make_shared<LogicCondition>(std::move(operand), nullptr, Not);
}

}  // namespace quorl
