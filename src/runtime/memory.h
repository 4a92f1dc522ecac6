// Aligned heap memory for the runtime toolbox.
//
// Memory from AlignedAlloc belongs to the caller and goes back through AlignedFree (plain `free`).
// Stateless; any thread.
#pragma once

#include <cstddef>

namespace quorl {

// `size` bytes aligned to `alignment` through posix_memalign, or null on any failure (an alignment that
// is not a power of two times the pointer size included).
void* AlignedAlloc(std::size_t alignment, std::size_t size);
// Frees what AlignedAlloc gave; null is accepted.
void AlignedFree(void* pointer);

}  // namespace quorl

namespace quorl {

// Three placeholders of the toolbox's interface: each returns 0 and does nothing else. Nothing calls
// them; they are kept so that the interface stays whole.
int RuntimePlaceholder1();
int RuntimePlaceholder2();
int RuntimePlaceholder3();

}  // namespace quorl
