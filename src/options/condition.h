// Condition expressions: when an option or a group of the schema (options/schema.h) is available in a
// given configuration. A condition is a small tree of shared, immutable objects: comparison leaves read
// the current value of one option (named by the path captured when the leaf was built) and compare it
// with a constant; logic nodes combine two booleans. Nothing is cached: every evaluation walks the
// schema and the configuration from their roots and reads the current values afresh.
//
// Ownership: conditions are held by shared references from schema records and from other conditions;
// a leaf holds its option's path and a deep copy of its constant, never a reference into the schema, so
// no cycle can form. A cycle among conditions (a available only when b, b only when a) is not detected
// and must not be declared: evaluation would not end.
//
// Threads: conditions take no lock and change nothing; they may be evaluated from several threads at
// once as long as nobody changes the schema or the configuration meanwhile.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "options/node.h"
#include "options/schema.h"
#include "options/value.h"

namespace quorl {

class OptionCondition {
 public:
  using GroupRef = std::shared_ptr<OptionGroup>;
  using NodeRef = std::shared_ptr<OptionNode>;

  virtual ~OptionCondition() = default;
  // Whether the condition holds in the configuration that `tree` belongs to (any node of it; null reads
  // defaults only). `context` is the group holding the record that carries the condition; it serves to
  // reach the schema's root and must not be null when a comparison is reached.
  virtual bool Evaluate(const GroupRef& context, const NodeRef& tree) const = 0;
  // How many condition nodes stand behind this one, following the conditions of the options read.
  virtual uint64_t Weight(const GroupRef& context) const = 0;

 protected:
  OptionCondition() = default;
};

// Compares the current value of one option, or its default when the configuration lacks it, with a
// constant. An option that is not available, or no longer in the schema, satisfies no comparison.
class CompareCondition final : public OptionCondition {
 public:
  using Predicate = std::function<bool(const OptionValue& current, const OptionValue& constant)>;

  // Copies `constant`, then captures the path of `option` as it stands now: a group attached above it
  // later does not lengthen the path. An option with no live parent gives an empty path, which finds
  // nothing. An unset predicate raises std::bad_function_call at evaluation.
  CompareCondition(const OptionDescriptor& option, const OptionValue& constant, Predicate predicate);

  bool Evaluate(const GroupRef& context, const NodeRef& tree) const override;
  uint64_t Weight(const GroupRef& context) const override;

  const OptionPath& GetPath() const { return path; }
  const OptionValue& GetConstant() const { return constant; }

 private:
  OptionPath path;
  OptionValue constant;
  Predicate predicate;
};

// Combines the results of two operands, either of which may be empty (an empty operand counts as false).
// Both operands are always evaluated, left first: there is no short-circuit.
class LogicCondition final : public OptionCondition {
 public:
  using Predicate = std::function<bool(const bool& left, const bool& right)>;

  LogicCondition(std::shared_ptr<OptionCondition> left, std::shared_ptr<OptionCondition> right,
                 Predicate predicate);

  bool Evaluate(const GroupRef& context, const NodeRef& tree) const override;
  uint64_t Weight(const GroupRef& context) const override;

  const std::shared_ptr<OptionCondition>& GetLeft() const { return left; }
  const std::shared_ptr<OptionCondition>& GetRight() const { return right; }

 private:
  std::shared_ptr<OptionCondition> left;
  std::shared_ptr<OptionCondition> right;
  Predicate predicate;
};

using ConditionRef = std::shared_ptr<OptionCondition>;
using DescriptorRef = std::shared_ptr<OptionDescriptor>;

// Comparisons of the option's current value (left) with `value` (right). Values of different types are
// ordered by type id and never equal; the empty value comes first. `option` must not be null, and its
// parent and the groups above must be attached already.
ConditionRef MakeGreater(const DescriptorRef& option, const OptionValue& value);
ConditionRef MakeLess(const DescriptorRef& option, const OptionValue& value);
ConditionRef MakeLessEqual(const DescriptorRef& option, const OptionValue& value);
ConditionRef MakeGreaterEqual(const DescriptorRef& option, const OptionValue& value);
ConditionRef MakeNotEqual(const DescriptorRef& option, const OptionValue& value);
ConditionRef MakeEqual(const DescriptorRef& option, const OptionValue& value);
// Whether the text of the current value contains the text of `value`, across types; an empty value
// reads as the empty text, which every text contains.
ConditionRef MakeContains(const DescriptorRef& option, const OptionValue& value);

ConditionRef MakeAnd(ConditionRef left, ConditionRef right);
ConditionRef MakeOr(ConditionRef left, ConditionRef right);
// True when `operand` is false or empty.
ConditionRef MakeNot(ConditionRef operand);

}  // namespace quorl
