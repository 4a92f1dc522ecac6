#include "log_traffic.h"

#include <cstdlib>

namespace quorl::host {

void LogProducer::Add(int32_t level, const std::string& text) {
  const int64_t sequence = added_.load(std::memory_order_relaxed) + 1;
  const std::string entry = "[" + name_ + " #" + std::to_string(sequence) + "] " + text;
  api_.LogBuffer_Add(level, entry.c_str());
  // Counted after the add, so a poller that sees the count has the entry in the buffer already.
  added_.store(sequence, std::memory_order_release);
}

int LogPoller::Poll() {
  int taken = 0;
  for (;;) {
    api_.Lock();
    const LogBufferView* view = api_.LogBuffer_Get();
    if (view == nullptr) {
      api_.Unlock();
      break;
    }
    const int32_t level = view->level;
    // The text belongs to the entry and dangles after the pop: copy it first.
    const std::string message = view->message != nullptr ? view->message : "";
    api_.LogBuffer_Pop();
    api_.Unlock();

    if (firstView_ == nullptr) firstView_ = view;
    if (view != firstView_) {
      invariants_.Check("the log view stays at one address", false, "the view moved");
    }
    ++taken;
    ++delivered_;
    ++byLevel_[level];
    lastMessage_ = message;

    // "[<producer> #<n>] <text>"
    const size_t hash = message.find(" #");
    const size_t close = message.find("] ");
    if (message.empty() || message[0] != '[' || hash == std::string::npos || close == std::string::npos ||
        close < hash) {
      invariants_.Check("log entries arrive whole, once and in order", false,
                        "unrecognised entry \"" + message + "\"");
      continue;
    }
    const std::string producer = message.substr(1, hash - 1);
    const int64_t sequence = std::strtoll(message.c_str() + hash + 2, nullptr, 10);
    int64_t& last = lastSequence_[producer];
    if (sequence != last + 1) {
      invariants_.Check(
          "log entries arrive whole, once and in order", false,
          producer + " entry #" + std::to_string(sequence) + " came after #" + std::to_string(last));
    }
    last = sequence;
  }
  return taken;
}

void LogPoller::Finish() {
  for (const LogProducer* producer : producers_) {
    const int64_t added = producer->added();
    const int64_t seen = lastSequence_[producer->name()];
    invariants_.Check("log entries arrive whole, once and in order", seen == added,
                      producer->name() + " added " + std::to_string(added) + ", host received up to #" +
                          std::to_string(seen));
  }
  invariants_.Check("the log view stays at one address", true);
  api_.Lock();
  const bool empty = api_.LogBuffer_Get() == nullptr;
  api_.Unlock();
  invariants_.Check("the log buffer is empty once polled dry", empty);
}

int64_t LogPoller::deliveredAtLevel(int32_t level) const {
  const auto found = byLevel_.find(level);
  return found == byLevel_.end() ? 0 : found->second;
}

}  // namespace quorl::host
