// Invariants: the checks of one simulated session, collected from every thread and reported at the end.
//
// Each check has a short name that a person reads in the summary ("every queued event ran once"). A
// check may be recorded many times (once per event, say); it fails if any record failed, and the first
// few failure details are kept. Any thread may call Check; the report is read after the threads stop.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace quorl::host {

class Invariants {
 public:
  struct Row {
    std::string name;
    int64_t checked = 0;
    int64_t failed = 0;
    std::vector<std::string> details;  // the first few failures, in the order they happened
  };

  // Records one outcome of the named check. `detail` says what was seen when it fails.
  void Check(const std::string& name, bool holds, const std::string& detail = std::string());

  // Rows in the order their names first appeared.
  std::vector<Row> Rows() const;
  int FailedCount() const;

 private:
  static constexpr size_t kDetailsKept = 3;
  mutable std::mutex mutex_;
  std::vector<Row> rows_;
};

}  // namespace quorl::host
