#include "runtime/type_registry.h"

namespace quorl {

std::vector<ValueTypeTable*>& ValueTypeRegistry() {
  static std::vector<ValueTypeTable*> registry;
  return registry;
}

}  // namespace quorl
