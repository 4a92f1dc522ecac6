// LogLedger: the entries that threads add to the library's log buffer, and the polls that take them out
// again, checking that each producer's entries arrive once, whole and in order.
//
// An entry reads "[<producer> #<n>] <text> |<hash>": n counts a producer's entries from 1, and the hash
// covers the level and all that comes before it, so a poller tells a whole entry from a damaged one
// without knowing the text. Producers are made before the threads start; each then belongs to one thread,
// which numbers its entries, and the count it added may be read from any thread. Poll and CheckComplete
// run under Lock, which makes Get, copy and Pop one step for every other poller; what they record of
// the deliveries is guarded by that bridge mutex.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "checks.h"

namespace quorl::host {

class LogProducer {
 public:
  explicit LogProducer(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }
  int64_t added() const { return added_.load(std::memory_order_acquire); }

 private:
  friend class LogLedger;
  const std::string name_;
  std::atomic<int64_t> added_{0};
  int64_t delivered_ = 0;  // the last sequence number delivered; under the bridge mutex
};

class LogLedger {
 public:
  // Before the threads start.
  LogProducer& AddProducer(const std::string& name);

  // Adds the producer's next entry; false when the buffer holds enough undelivered entries already.
  bool Add(ThreadContext& context, LogProducer& producer, int32_t level, const std::string& text);

  // Under Lock: takes up to `limit` entries and checks each; returns how many. With `own`, now and then
  // adds one of its entries between a Get and its Pop, to see that the entry in view stays put.
  int Poll(ThreadContext& context, int limit, LogProducer* own);
  // Under Lock, nothing added any more: every producer's entries all arrived, and none is left.
  void CheckComplete(ThreadContext& context);

  int64_t delivered() const { return totalDelivered_.load(std::memory_order_relaxed); }
  // Under the bridge mutex, or after the pollers stopped.
  int64_t deliveredAtLevel(int32_t level) const;
  const std::string& lastMessage() const { return lastMessage_; }

 private:
  void Deliver(ThreadContext& context, int32_t level, const std::string& message);

  std::deque<LogProducer> producers_;
  std::atomic<int64_t> totalAdded_{0};
  std::atomic<int64_t> totalDelivered_{0};
  // Under the bridge mutex.
  const LogBufferView* view_ = nullptr;
  std::map<int32_t, int64_t> byLevel_;
  std::string lastMessage_;
};

}  // namespace quorl::host
