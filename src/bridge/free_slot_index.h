// FreeSlotIndex: the set of free render-event slots, answering "which is the lowest free slot?" without
// scanning the slots.
//
// A tree of 64-bit words: in level 0, bit i is set when slot i is free; in every level above, a bit is
// set when the word below it has any bit set, and may stay set for a while after that word emptied (a
// stale summary, cleared by the next search that walks into it). The top level is the single word top_,
// kept in the object itself, so a table of up to 64 slots is that one word and needs no memory of its
// own; the levels below it share one heap block. Taking a slot touches one word; freeing one climbs only
// until it meets a summary bit that is already set. Finding the lowest free slot touches one word per
// level: O(log64 n), four levels for 16 million slots. Slots that were never added are not in the set,
// so growing the table adds nothing to it.
//
// Constant-initialised (raw pointers, no standard container), so the global slot table needs no dynamic
// initialisation, with any compiler. Not synchronised: the owner (the render-event slot table) holds its
// mutex around every call.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl {

class FreeSlotIndex {
 public:
  constexpr FreeSlotIndex() noexcept = default;
  ~FreeSlotIndex() { delete[] block_; }
  FreeSlotIndex(const FreeSlotIndex&) = delete;
  FreeSlotIndex& operator=(const FreeSlotIndex&) = delete;

  static constexpr std::size_t kNone = ~std::size_t{0};

  // Makes room for slots [0, count): may allocate, and leaves the set unchanged if that throws.
  void Reserve(std::size_t count);

  // The lowest free slot, or kNone. Clears the stale summary bits it meets on the way.
  std::size_t Lowest() noexcept {
    for (;;) {
      if (top_ == 0) return kNone;
      std::size_t index = static_cast<std::size_t>(__builtin_ctzll(top_));
      std::size_t level = levelCount_ - 1;
      while (level > 0) {
        const uint64_t word = levels_[level - 1][index];
        if (word == 0) break;
        index = index * 64 + static_cast<std::size_t>(__builtin_ctzll(word));
        --level;
      }
      if (level == 0) return index;
      ClearStaleSummary(level, index);
    }
  }

  // Both require a slot below the reserved count. Only MarkFree climbs: it stops at the first summary
  // bit that is already set.
  void MarkFree(std::size_t slot) noexcept {
    std::size_t index = slot;
    for (std::size_t level = 0; level < levelCount_; ++level) {
      uint64_t& word = levels_[level][index / 64];
      const uint64_t bit = uint64_t{1} << (index % 64);
      if ((word & bit) != 0) return;
      word |= bit;
      index /= 64;
    }
  }

  void MarkTaken(std::size_t slot) noexcept { levels_[0][slot / 64] &= ~(uint64_t{1} << (slot % 64)); }

 private:
  // 64^6 slots is more than an i32 identifier can name.
  static constexpr std::size_t kMaxLevels = 6;

  // levels_[0] has one bit per slot; levels_[levelCount_ - 1] points at top_. Every level below the
  // top lies in block_.
  uint64_t* levels_[kMaxLevels] = {};
  uint64_t* block_ = nullptr;
  uint64_t top_ = 0;
  std::size_t levelCount_ = 0;  // 0 until the first Reserve
  std::size_t capacity_ = 0;    // slots that the levels have room for

  // Word `index` of level `level - 1` is empty: clears its summary bit, and upward while words empty.
  void ClearStaleSummary(std::size_t level, std::size_t index) noexcept {
    for (; level < levelCount_; ++level) {
      uint64_t& word = levels_[level][index / 64];
      word &= ~(uint64_t{1} << (index % 64));
      if (word != 0) return;
      index /= 64;
    }
  }
};

}  // namespace quorl
