#include "runtime/memory.h"

#include <cstdlib>

namespace quorl {

void* AlignedAlloc(std::size_t alignment, std::size_t size) {
  void* pointer = nullptr;
  if (posix_memalign(&pointer, alignment, size) != 0) return nullptr;
  return pointer;
}

void AlignedFree(void* pointer) {
  std::free(pointer);
}

}  // namespace quorl

namespace quorl {

int RuntimePlaceholder1() {
  return 0;
}
int RuntimePlaceholder2() {
  return 0;
}
int RuntimePlaceholder3() {
  return 0;
}

}  // namespace quorl
