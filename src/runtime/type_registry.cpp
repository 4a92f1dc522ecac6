#include "runtime/type_registry.h"

namespace quorl {

namespace {

// Constant-initialised (std::mutex has a constexpr constructor), so no start-up order matters.
std::mutex gValueTypeLock;

}  // namespace

std::vector<ValueTypeTable*>& ValueTypeRegistry() {
  static std::vector<ValueTypeTable*> registry;
  return registry;
}

std::mutex& ValueTypeLock() {
  return gValueTypeLock;
}

}  // namespace quorl
