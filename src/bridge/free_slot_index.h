// FreeSlotIndex: the set of free render-event slots, answering "which is the lowest free slot?" without
// scanning the slots.
//
// A tree of 64-bit words: in level 0, bit i is set when slot i is free; in every level above, a bit is
// set when the word below it has any bit set. The top level is one word. Finding the lowest free slot,
// and marking a slot free or taken, touch one word per level: O(log64 n), four levels for 16 million
// slots. Slots that were never added are not in the set, so growing the table adds nothing to it.
//
// Not synchronised: the owner (the render-event slot table) holds its mutex around every call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorl {

class FreeSlotIndex {
 public:
  static constexpr std::size_t kNone = ~std::size_t{0};

  // Makes room for slots [0, count): may allocate, and leaves the set unchanged if that throws.
  void Reserve(std::size_t count);

  // The lowest free slot, or kNone.
  std::size_t Lowest() const noexcept;

  // Both require a slot below the reserved count.
  void MarkFree(std::size_t slot) noexcept;
  void MarkTaken(std::size_t slot) noexcept;

 private:
  // levels_[0] has one bit per slot; the last level is a single word.
  std::vector<std::vector<uint64_t>> levels_;
};

}  // namespace quorl
