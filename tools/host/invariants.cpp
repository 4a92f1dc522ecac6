#include "invariants.h"

namespace quorl::host {

void Invariants::Check(const std::string& name, bool holds, const std::string& detail) {
  std::lock_guard<std::mutex> guard(mutex_);
  Row* row = nullptr;
  for (Row& candidate : rows_) {
    if (candidate.name == name) {
      row = &candidate;
      break;
    }
  }
  if (row == nullptr) {
    rows_.push_back(Row{name, 0, 0, {}});
    row = &rows_.back();
  }
  ++row->checked;
  if (!holds) {
    ++row->failed;
    if (row->details.size() < kDetailsKept) row->details.push_back(detail);
  }
}

std::vector<Invariants::Row> Invariants::Rows() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return rows_;
}

int Invariants::FailedCount() const {
  std::lock_guard<std::mutex> guard(mutex_);
  int failed = 0;
  for (const Row& row : rows_)
    failed += row.failed > 0 ? 1 : 0;
  return failed;
}

}  // namespace quorl::host
