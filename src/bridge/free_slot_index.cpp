#include "bridge/free_slot_index.h"

#include <algorithm>

namespace quorl {

void FreeSlotIndex::Reserve(std::size_t count) {
  std::size_t words = (count + 63) / 64;
  if (words == 0) words = 1;
  if (levelCount_ != 0 && words_[0] >= words) return;

  // Build the grown shape aside, so that an allocation failure leaves the index as it was.
  std::unique_ptr<uint64_t[]> grown[kMaxLevels];
  std::size_t grownWords[kMaxLevels] = {};
  std::size_t grownCount = 0;
  for (;;) {
    grown[grownCount].reset(new uint64_t[words]());
    grownWords[grownCount] = words;
    if (grownCount < levelCount_) {
      std::copy(levels_[grownCount].get(), levels_[grownCount].get() + words_[grownCount],
                grown[grownCount].get());
    }
    ++grownCount;
    if (words == 1) break;
    words = (words + 63) / 64;
  }
  // A taller tree needs its new upper levels to summarise the old top word.
  for (std::size_t level = levelCount_ == 0 ? 1 : levelCount_; level < grownCount; ++level) {
    if (grown[level - 1][0] != 0) grown[level][0] |= 1;
  }
  for (std::size_t level = 0; level < kMaxLevels; ++level) {
    levels_[level].swap(grown[level]);
    words_[level] = grownWords[level];
  }
  levelCount_ = grownCount;
}
}  // namespace quorl
