#include "runtime/memory.h"

#include <cstdlib>

namespace quorl {

void* AlignedAlloc(std::size_t alignment, std::size_t size) {
  // posix_memalign refuses these with EINVAL; answered here first so that memory checkers, which treat
  // such a request as a fault, see none.
  const bool powerOfTwo = alignment != 0 && (alignment & (alignment - 1)) == 0;
  if (!powerOfTwo || alignment % sizeof(void*) != 0) return nullptr;
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
