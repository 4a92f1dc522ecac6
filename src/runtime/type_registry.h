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

// Constant-initialised (std::mutex has a constexpr constructor), so no start-up order matters; inline,
// because every typed use of a value table takes it.
inline std::mutex gValueTypeLock;

// The process-wide mutex that guards the registry and the first filling of each table.
inline std::mutex& ValueTypeLock() {
  return gValueTypeLock;
}

}  // namespace quorl
