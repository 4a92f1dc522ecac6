#include "bridge/free_slot_index.h"

namespace quorl {

void FreeSlotIndex::Reserve(std::size_t count) {
  std::size_t words = (count + 63) / 64;
  if (words == 0) words = 1;
  if (!levels_.empty() && levels_[0].size() >= words) return;

  // Build the grown shape aside, so that an allocation failure leaves the index as it was.
  std::vector<std::vector<uint64_t>> grown;
  for (std::size_t level = 0;; ++level) {
    std::vector<uint64_t> row(words, 0);
    if (level < levels_.size()) {
      for (std::size_t i = 0; i < levels_[level].size(); ++i)
        row[i] = levels_[level][i];
    }
    grown.push_back(std::move(row));
    if (words == 1) break;
    words = (words + 63) / 64;
  }
  // A taller tree needs its new upper levels to summarise the old top word.
  for (std::size_t level = levels_.size(); level < grown.size() && level > 0; ++level) {
    if (grown[level - 1][0] != 0) grown[level][0] |= 1;
  }
  levels_.swap(grown);
}

std::size_t FreeSlotIndex::Lowest() const noexcept {
  if (levels_.empty() || levels_.back()[0] == 0) return kNone;
  std::size_t index = 0;
  for (std::size_t level = levels_.size(); level-- > 0;) {
    const uint64_t word = levels_[level][index];
    index = index * 64 + static_cast<std::size_t>(__builtin_ctzll(word));
  }
  return index;
}

void FreeSlotIndex::MarkFree(std::size_t slot) noexcept {
  std::size_t index = slot;
  for (auto& level : levels_) {
    uint64_t& word = level[index / 64];
    const bool wasEmpty = word == 0;
    word |= uint64_t{1} << (index % 64);
    if (!wasEmpty) return;
    index /= 64;
  }
}

void FreeSlotIndex::MarkTaken(std::size_t slot) noexcept {
  std::size_t index = slot;
  for (auto& level : levels_) {
    uint64_t& word = level[index / 64];
    word &= ~(uint64_t{1} << (index % 64));
    if (word != 0) return;
    index /= 64;
  }
}

}  // namespace quorl
