// Log traffic: entries that threads of the session add to the library's log buffer, and the host's
// per-frame poll that takes them out again, checking that each producer's entries arrive once, whole
// and in order.
//
// A LogProducer belongs to one thread at a time (the thread that plays that role) and numbers its
// entries; the count it added may be read from any thread. The LogPoller is the host's, used by the
// main thread only: it reads the view, copies the text and pops, all under Lock and Unlock, which is
// the pattern the library asks of a poller when other threads may poll or add meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bridge_library.h"
#include "invariants.h"

namespace quorl::host {

class LogProducer {
 public:
  LogProducer(const BridgeApi& api, std::string name) : api_(api), name_(std::move(name)) {}

  // Adds "[<name> #<n>] <text>", n counting from 1.
  void Add(int32_t level, const std::string& text);

  const std::string& name() const { return name_; }
  int64_t added() const { return added_.load(std::memory_order_acquire); }

 private:
  const BridgeApi& api_;
  std::string name_;
  std::atomic<int64_t> added_{0};
};

class LogPoller {
 public:
  LogPoller(const BridgeApi& api, Invariants& invariants) : api_(api), invariants_(invariants) {}

  // Producers whose entries are expected; entries from anyone else are reported.
  void Expect(const LogProducer* producer) { producers_.push_back(producer); }

  // Takes every entry present now; returns how many.
  int Poll();

  // Checks that every entry added was delivered; call after the producers stopped and a last Poll.
  void Finish();

  int64_t delivered() const { return delivered_; }
  int64_t deliveredAtLevel(int32_t level) const;
  const std::string& lastMessage() const { return lastMessage_; }

 private:
  const BridgeApi& api_;
  Invariants& invariants_;
  std::vector<const LogProducer*> producers_;
  std::map<std::string, int64_t> lastSequence_;
  std::map<int32_t, int64_t> byLevel_;
  const LogBufferView* firstView_ = nullptr;
  int64_t delivered_ = 0;
  std::string lastMessage_;
};

}  // namespace quorl::host
