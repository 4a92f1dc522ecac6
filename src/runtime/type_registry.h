// The two process-wide singletons behind the option value types: the registry that hands out type ids,
// and the lock that guards it.
//
// The registry is a growable array of table pointers indexed by type id, made on first call
// (thread-safely) and freed at process exit; only code holding ValueTypeLock may read or change it. The
// lock is a constant-initialised plain mutex, usable from static initialisation on.
#pragma once

#include <mutex>
#include <vector>

namespace quorl {

struct ValueTypeTable;

// The registry of value type tables; hold ValueTypeLock() while using it.
std::vector<ValueTypeTable*>& ValueTypeRegistry();

// The process-wide mutex that guards the registry and the first filling of each table.
std::mutex& ValueTypeLock();

}  // namespace quorl
