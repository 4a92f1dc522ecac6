// The binding between an OptionNode tree and a RapidJSON document held in memory (UTF-8,
// MemoryPoolAllocator, 64-bit size type). Turning text into a DOM and back is RapidJSON's own reader and
// writer's business; these two functions start and end at a DOM value.
//
// The two directions are not inverses. Reading appends to the node it is given; writing looks only at
// the node's children, writes all children with values before all children with children, drops empty
// containers and nulls, and does not keep types (a float comes back as a double, a small 64-bit integer
// as a 32-bit one).
//
// Neither function locks anything of its own beyond the value type lock of each typed use; the caller
// has the tree and the DOM to itself for the length of a call. The DOM does not refer to the tree after
// WriteJson, nor the tree to the DOM after ReadJson: all texts are copied.
#pragma once

#include <memory>

#include "options/node.h"
#include "options/rapidjson.h"

namespace quorl {

using JsonAllocator = rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>;
using JsonValue = rapidjson::GenericValue<rapidjson::UTF8<>, JsonAllocator>;

// Adds what `json` holds to `node`: a scalar becomes its value, an object's members and an array's
// elements become new children, in document order. Gives false for a null, an empty container or a
// number that no value type takes; for a container, what its last entry gave. Nothing is undone on
// false. Raises std::bad_weak_ptr when a container is read into a node without a shared reference.
bool ReadJson(const std::shared_ptr<OptionNode>& node, const JsonValue& json);

// Adds the node's children to `json`, which the caller has made an object when the node IsObject and an
// array when it IsArray; texts are copied with `allocator`. Gives true when at least one child was
// written.
bool WriteJson(const std::shared_ptr<OptionNode>& node, JsonValue& json, JsonAllocator& allocator);

}  // namespace quorl
