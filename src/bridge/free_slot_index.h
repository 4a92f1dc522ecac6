// FreeSlotIndex: the set of free render-event slots, answering "which is the lowest free slot?" without
// scanning the slots.
//
// A tree of 64-bit words: in level 0, bit i is set when slot i is free; in every level above, a bit is
// set when the word below it has any bit set. The top level is one word. Finding the lowest free slot,
// and marking a slot free or taken, touch one word per level: O(log64 n), four levels for 16 million
// slots. Slots that were never added are not in the set, so growing the table adds nothing to it.
//
// Constant-initialised, so the global slot table needs no dynamic initialisation. Not synchronised: the owner
// (the render-event slot table) holds its mutex around every call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quorl {

class FreeSlotIndex {
 public:
  constexpr FreeSlotIndex() noexcept = default;

  static constexpr std::size_t kNone = ~std::size_t{0};

  // Makes room for slots [0, count): may allocate, and leaves the set unchanged if that throws.
  void Reserve(std::size_t count);

  // The lowest free slot, or kNone.
  std::size_t Lowest() const noexcept {
    if (levelCount_ == 0 || levels_[levelCount_ - 1][0] == 0) return kNone;
    std::size_t index = 0;
    for (std::size_t level = levelCount_; level-- > 0;) {
      index = index * 64 + static_cast<std::size_t>(__builtin_ctzll(levels_[level][index]));
    }
    return index;
  }

  // Both require a slot below the reserved count. They stop at the first level whose summary bit
  // does not change.
  void MarkFree(std::size_t slot) noexcept {
    std::size_t index = slot;
    for (std::size_t level = 0; level < levelCount_; ++level) {
      uint64_t& word = levels_[level][index / 64];
      const bool wasEmpty = word == 0;
      word |= uint64_t{1} << (index % 64);
      if (!wasEmpty) return;
      index /= 64;
    }
  }

  void MarkTaken(std::size_t slot) noexcept {
    std::size_t index = slot;
    for (std::size_t level = 0; level < levelCount_; ++level) {
      uint64_t& word = levels_[level][index / 64];
      word &= ~(uint64_t{1} << (index % 64));
      if (word != 0) return;
      index /= 64;
    }
  }

 private:
  // 64^6 slots is more than an i32 identifier can name.
  static constexpr std::size_t kMaxLevels = 6;

  // levels_[0] has one bit per slot; levels_[levelCount_ - 1] is a single word. Constant-initialised.
  std::unique_ptr<uint64_t[]> levels_[kMaxLevels] = {};
  std::size_t words_[kMaxLevels] = {};
  std::size_t levelCount_ = 0;
};

}  // namespace quorl
