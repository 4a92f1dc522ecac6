// The configuration resolver: OptionGroup::ApplyDefaults and OptionGroup::Validate (declared with the
// group in options/schema.h), which walk a schema and a configuration (an OptionNode tree) in step,
// matching names by hash. ApplyDefaults is the only place where defaults reach a configuration;
// Validate reports every unknown or unavailable node in one pass and coerces each option's value to its
// declared type through text.
//
// Problems are logged through Logger::Log at severity 3, one line per node:
//   "Option not found '<path>'"                         the node names neither an option nor a group
//   "Option <path> not available in this configuration"  its option or group is not available
// where <path> is the group's dotted path, ".", and the node's name; for a top-level node it therefore
// starts with a dot.
//
// Ownership and threads: the schema is only read; the configuration is written (nodes added by
// ApplyDefaults, values replaced by Validate), so the caller keeps other threads away from it for the
// whole call. Nothing is undone when a call fails part-way or throws.
#pragma once

#include "core/logger.h"
#include "options/condition.h"
#include "options/schema.h"

namespace quorl {

// The severity of the resolver's messages.
inline constexpr Logger::LOG_TYPE kOptionProblemSeverity = static_cast<Logger::LOG_TYPE>(3);

}  // namespace quorl
