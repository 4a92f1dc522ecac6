#include "bridge/free_slot_index.h"

#include <algorithm>

namespace quorl {

void FreeSlotIndex::Reserve(std::size_t count) {
  if (count <= capacity_ && levelCount_ != 0) return;

  // The grown shape: words per level, from one bit per slot up to the single top word.
  std::size_t words[kMaxLevels] = {};
  std::size_t levelCount = 0;
  std::size_t belowTop = 0;  // words of all levels under the top
  for (std::size_t n = std::max<std::size_t>((count + 63) / 64, 1);; n = (n + 63) / 64) {
    words[levelCount++] = n;
    if (n == 1) break;
    belowTop += n;
  }

  // The one allocation; nothing below it throws, so a failure leaves the set as it was.
  uint64_t* block = belowTop == 0 ? nullptr : new uint64_t[belowTop]();
  uint64_t* grown[kMaxLevels] = {};
  for (std::size_t level = 0, offset = 0; level + 1 < levelCount; offset += words[level++])
    grown[level] = block + offset;

  // Level 0 keeps its bits; every summary above is rebuilt exactly from the level below it.
  const uint64_t oldTop = top_;
  uint64_t* const newLevel0 = levelCount == 1 ? &top_ : grown[0];
  if (levelCount_ == 1) {
    newLevel0[0] = oldTop;
  } else if (levelCount_ > 1) {
    std::copy(levels_[0], levels_[0] + (capacity_ / 64), newLevel0);
  }
  if (levelCount > 1) top_ = 0;
  grown[levelCount - 1] = &top_;
  for (std::size_t level = 1; level < levelCount; ++level) {
    for (std::size_t i = 0; i < words[level - 1]; ++i) {
      if (grown[level - 1][i] != 0) grown[level][i / 64] |= uint64_t{1} << (i % 64);
    }
  }

  delete[] block_;
  block_ = block;
  std::copy(grown, grown + kMaxLevels, levels_);
  levelCount_ = levelCount;
  capacity_ = words[0] * 64;
}

}  // namespace quorl
